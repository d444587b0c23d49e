#pragma once

// The one writer of a table: insertion, overwriting, removal, lookup, iteration, and direct
// operations, which let a caller compose a value in place.
//
// Who may call: the one thread that owns the table. Readers in other processes see each change
// only through the ordered stores of Vesk/SlotWords.h, Vesk/SlotWriter.h and
// VeskCore/WriterHashMap.h; this file keeps their invariants and adds none.
//
// Returned addresses lie in the table's file and are good until the next change of the table.
// Arguments may lie there too, or in a buffer that the same call fills: what is needed afterwards
// is copied first.
//
// One change is one critical section: the flag in the file is set before the first store and
// cleared after the last. An exception leaves it set; see I7 in Vesk/SlotWriter.h for what follows.
// With traces off no operation allocates memory, but for the growth of a file.

#include "Mem/Atomics.h"
#include "MoxSharedMem/MountStatus.h"
#include "Pello/Loop.h"
#include "Pello/Scheduler.h"
#include "Pello/TypeName.h"
#include "Pello/Util.h"
#include "Torvu/TorvuWriter.h"
#include "Vesk/SlotWriter.h"
#include "Vesk/Util.h"
#include "Vesk/Validator.h"
#include "Vesk/VeskInterface.h"
#include "Vesk/WriterLife.h"
#include "VeskCore/WriterHashMap.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <type_traits>
#include <utility>

namespace Vesk {

template <class Ops>
class VeskWriter : public VeskInterface<Ops>,
                   public Torvu::TorvuWriterNotifiee,
                   public Pello::Debuggable,
                   private WriterParts {
  public:
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using QuiescedHandler = std::function<void(bool)>;
    using VersionAnchorHook = void (*)(const Mem::VersionAnchor&);

    /// Makes the folder of the table's files, unless the descriptor asks for process memory, but
    /// touches no file before `initialize`. Throws `InvalidInitializeException` for a bad name or
    /// a folder that cannot be made.
    VeskWriter(std::shared_ptr<Pello::Platform::DebugHandler> handler, const Pello::String& name,
               const MapDescriptor& descriptor, const Ops& ops, const Pello::String& classType,
               QuiescedHandler quiescedHandler);
    ~VeskWriter() override { doDetach(); }

    bool initialize(const Pello::String& event) override;
    void detach(bool /*force*/) override { doDetach(); }
    bool validate() override;
    bool validateFiles() override;
    void cleanup() override { life_.cleanup(); }

    /// Stores a value under its key. With `overwrite` false an existing entry stays as it is.
    /// Returns the address of the stored value. Throws `TableFullException` for a new key when a
    /// fixed-size table is full, `MemoryResourceException` when the file cannot grow.
    Value* write(const Value& value, bool overwrite) override;
    /// Removes an entry and hands its value out; false when there is none.
    bool remove(const Key& key, Value& out) override;
    /// The address of the key's value; for an absent key that of the default value, which is also
    /// copied into `buffer` (a `Value`) when that is given.
    const Value* lookup(const Key& key, bool& found, void* buffer) const override;
    bool first(Value& out, IterHint& hint) const override { return hashMap_.first(0, out, hint); }
    bool next(const Key& key, Value& out, IterHint& hint) const override {
        return hashMap_.next(key, out, hint);
    }

    /// Opens a direct operation for the value's key, begun with a copy of `value`. The caller may
    /// change the value, but not its key, at the returned address until `directCommit`, and calls
    /// nothing else on the table meanwhile. Throws like `write`.
    Value* directWrite(const Value& value) override;
    /// Opens a direct operation for an existing entry; null, with nothing opened, when there is
    /// none. The caller must store the complete value, its key included, at the returned address:
    /// what lies there is the image of some earlier change.
    Value* directUpdate(const Key& key) override;
    /// Publishes the open direct operation. Builds with assertions check that the key is the one
    /// that the operation was opened for.
    void directCommit() override;

    std::uint32_t members() const override {
        return slots_.attached() ? slots_.header().occupiedSlots() : 0;
    }
    std::uint32_t buckets() const override { return hashMap_.buckets().numBuckets(); }
    std::uint32_t capacity() const override { return slots_.capacity(); }
    std::uint32_t minSize() const override { return slots_.minimumCapacity(); }
    std::uint32_t maxSize() const override { return slots_.tableSize(); }
    VeskType type() const override { return VeskType::writer; }
    bool quiesced() const override;
    bool clientQuiesced(const Pello::String& name) const override;
    std::uint64_t sequence() const override { return counters_.sequence; }
    Writer::Counters writerCounters() const override;
    Mem::OruRootPath rootPath() const override { return rootPath_; }
    Pello::String veskName() const override { return rootPath_.dirName(); }
    MoxSharedMem::MountStatus mountStatus() const override;
    SharedMem::RavoId ravoId() const override { return life_.ravoId(); }
    void validateVersionAnchor() const override;
    void validateVersionAnchorHookIs(VersionAnchorHook hook) override { anchorHook_ = hook; }
    void criticalTaskCheckIs(bool check) override { criticalTaskCheck_ = check; }
    bool criticalTaskCheck() const override { return criticalTaskCheck_; }
    void scratchpadIs(std::uint64_t word) override {
        slots_.checkAttached("scratchpadIs");
        slots_.header().scratchpadIs(word);
    }
    std::uint64_t scratchpad() const override {
        return slots_.attached() ? slots_.header().scratchpad() : 0;
    }

    // The order of these two is that of their slots, which follow the interface's.
    /// Compacts the slots if that is due. Waits for the end of an open direct operation.
    void shrink() override;
    void handleQuiesced(bool quiesced) override { quiescedHandler_(quiesced); }

    /// Takes images of a table's files into this writer, which is one in process memory and not
    /// initialised, and checks them like files that are to be taken over. When they are sound
    /// the writer reads as that table; else `error` says what is wrong.
    bool load(std::span<const std::byte> slots, std::span<const std::byte> buckets,
              SharedMem::RavoId id, Pello::String& error);

    /// A direct operation waits for its commit.
    bool directOpen() const { return directSlot_ != kNoSlot || directNew_; }

    // For the parts of a writer: the hash map, the validator, and tests of the file's bytes.
    SlotWriterTable<Ops>& slotTable() const { return slots_; }
    VeskCore::WriterHashMap<Ops>& hashMap() const { return hashMap_; }
    const auto& torvu() const { return torvu_; }
    const Mem::OruRootPath& tableRoot() const { return rootPath_; }
    Writer::Counters& counters() const { return counters_; }

  private:
    using TorvuWriter =
        std::conditional_t<Ops::notifying, Torvu::TorvuWriter<Torvu::BasicSlot, TorvuPos>,
                           Torvu::DummyTorvuWriter>;

    static constexpr std::uint32_t kNoSlot = 0xFFFFFFFFU;

    static Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
        return {"VeskWriter", "Vesk/VeskWriter", operation, line};
    }

    static Value* valueAt(std::byte* slotValue) { return reinterpret_cast<Value*>(slotValue); }

    /// The slot's value for a caller that may change it. No reader looks at it but through the
    /// sequence word.
    static Value* valueOf(SlotWords& slot) { return valueAt(slot.value()); }

    /// The value of the open direct operation, whose slot becomes the last one read.
    const Value& openDirectValue() const {
        SlotWords& slot = slots_.slot(directSlot_);
        slots_.lastReadIs(slot);
        return slots_.valueOf(slot);
    }

    template <class What>
    void guardDirect(const char* operation, const char* doing, const What& what) const {
        if (!directOpen()) [[likely]]
            return;
        const Value& open = openDirectValue();
        Pello::fatal(debugHandler().get(), tagOf(operation),
                     "unbalanced directSlot:{} containing value:{} when {}:{} - Make sure the "
                     "DirectIs/Commit are properly paired!",
                     directSlot_, open, doing, what);
    }

    /// A slot from the free list for a new entry; grows the file when there is none. The links
    /// stay right when the file moves.
    std::uint32_t allocate(std::uint32_t rhash, SlotLink*& prev, SlotLink*& curr) {
        if (slots_.header().freeHead() == SlotLink::kEnd) [[unlikely]]
            growSlots(prev, curr);
        return slots_.takeFreeSlot(rhash);
    }
    [[gnu::cold, gnu::noinline]] void growSlots(SlotLink*& prev, SlotLink*& curr);
    bool mustGrow() const { return slots_.header().freeHead() == SlotLink::kEnd; }

    Value* insert(const Value& value, std::uint32_t hash, SlotLink* prev, SlotLink* curr);
    Value* openDirect(const Value& value, std::uint32_t hash, bool found, SlotLink* curr);
    void growBucketsIfDue() {
        if (slots_.header().occupiedSlots() > hashMap_.growThreshold()) [[unlikely]]
            hashMap_.growBuckets();
    }
    void notifyChange(std::uint32_t slot) {
        if constexpr (Ops::notifying) torvu_.notify(slot, 0);
    }
    /// The number of slots to come down to; 0 while more than half as many are taken.
    std::uint32_t dueShrinkThreshold() const {
        const std::uint32_t threshold = slots_.shrinkThreshold();
        return slots_.header().occupiedSlots() < threshold / 2 ? threshold : 0;
    }
    /// Compacts the slots, inside a change; `threshold` is `dueShrinkThreshold()`.
    void doMaybeShrinkSlots(std::uint32_t threshold);
    void moveSlot(std::uint32_t from);
    void doDetach();
    void checkDirectKey(const SlotWords& slot, const Value& value) const;

    // WriterParts
    void resetCounters() override {
        counters_ = Writer::Counters();
        bucketCounters_ = VeskCore::Bucket::WriterCounters();
    }
    unsigned attachSlots(SharedMem::RavoId id) override { return slots_.attach(id); }
    unsigned attachBuckets(SharedMem::RavoId id) override {
        const unsigned result = hashMap_.buckets().attach(id);
        hashMap_.thresholdsUpdate();
        return result;
    }
    unsigned attachTorvu(SharedMem::RavoId id, unsigned slotCode) override {
        if constexpr (Ops::notifying) return torvu_.attach(id, slotCode, slots_.capacity());
        return 1;
    }
    bool hasTorvu() const override { return Ops::notifying; }
    std::optional<std::uint32_t> tableId() const override {
        if constexpr (Ops::notifying) return torvu_.tableId();
        return std::nullopt;
    }
    bool validateTable(SharedMem::RavoId id) override { return validateTable(id, nullptr); }
    bool validateTable(SharedMem::RavoId id, Pello::String* error);
    bool filesExist() const override {
        return slots_.mapping().existingSize() != 0 || hashMap_.buckets().existingSize() != 0;
    }
    void detachFiles() override {
        slots_.detach();
        hashMap_.buckets().detach();
        if constexpr (Ops::notifying) torvu_.detach();
    }
    void removeFiles() override {
        hashMap_.buckets().cleanup();
        slots_.cleanup();
    }
    void dumpToCore() override {
        slots_.mapping().dumpToCoreIs(true);
        hashMap_.buckets().dumpToCoreIs(true);
    }
    Pello::String dumpText() const override {
        return fmt::format("Vesk table \"{}\"\n\n\n{}\n\n{}\n\n", name_, slots_.header().toString(),
                           hashMap_.buckets().header().toString());
    }
    std::uint32_t tableCapacity() const override { return capacity(); }

    Mem::OruRootPath rootPath_;
    std::uint32_t directSlot_ = kNoSlot;
    SlotLink* directPrev_ = nullptr;
    bool directNew_ = false;
    mutable Writer::Counters counters_;
    QuiescedHandler quiescedHandler_;
    mutable SlotWriterTable<Ops> slots_;
    VeskCore::Bucket::WriterCounters bucketCounters_;
    mutable VeskCore::WriterHashMap<Ops> hashMap_;
    TorvuWriter torvu_;
    VersionAnchorHook anchorHook_ = nullptr;
    Pello::String name_;
    bool criticalTaskCheck_;
    Pello::Loop::Handle shrinkLater_;
    WriterLife life_;
};

template <class Ops>
VeskWriter<Ops>::VeskWriter(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                            const Pello::String& name, const MapDescriptor& descriptor,
                            const Ops& ops, const Pello::String& classType,
                            QuiescedHandler quiescedHandler)
    : VeskInterface<Ops>(ops)
    , Debuggable(handler)
    , rootPath_(*handler, name, !descriptor.localMem)
    , quiescedHandler_(std::move(quiescedHandler))
    , slots_(handler, rootPath_, {descriptor.localMem, descriptor.heapAlloc},
             Pello::typeName<typename Value::FrameworkValue>(), counters_, this->hashSeed_,
             {descriptor.size, descriptor.fixedSize, descriptor.shrinkSlots})
    , hashMap_(handler, rootPath_, {descriptor.localMem, descriptor.heapAlloc}, bucketCounters_,
               *this, descriptor.shrinkBuckets)
    , torvu_(handler, rootPath_, counters_, descriptor.keepDeleted ? 0U : 1U, *this)
    , name_(name)
    , criticalTaskCheck_(descriptor.criticalTaskCheck)
    , life_(handler, *this, rootPath_, descriptor.localMem, classType) {
    if (descriptor.trackMemory) slots_.trackMapping(typeid(VeskWriter));
    if (descriptor.dumpToCore) {
        dumpToCore();
        Pello::Util::includeShmemInCore();
    }
}

template <class Ops>
bool VeskWriter<Ops>::initialize(const Pello::String& /*event*/) {
    if (!life_.localMem() && !Mem::Atomics::checkCpuSupport()) {
        Pello::raise<Pello::InvalidInitializeException>(tagOf("initialize"),
                                                        "Hardware does not support Atomics");
    }
    if (this->initialized()) return true;
    life_.attach();
    this->initializedIs(true);
    return true;
}

template <class Ops>
auto VeskWriter<Ops>::write(const Value& value, bool overwrite) -> Value* {
    const Key& key = Ops::key(value);
    const std::uint32_t hash = Ops::hash(key, this->hashSeed_);
    guardDirect("write", "writing value", value);
    slots_.enterCriticalSection();
    const std::uint32_t bucket = hashMap_.bucketOf(hash);
    SlotLink* prev = nullptr;
    SlotLink* curr = nullptr;
    Value* stored = nullptr;
    if (hashMap_.find(key, bucket, prev, curr, hash)) {
        const std::uint32_t index = prev->next();
        SlotWords& slot = slots_.slot(index);
        PELLO_TRACE(*this, 9, tagOf("write"), "existing {} bucket:{} slot:{} next:{}", key, bucket,
                    index, slot.link.next());
        stored = valueOf(slot);
        if (overwrite) {
            slots_.rewrite(slot, value);
            notifyChange(index);
        }
    } else {
        stored = insert(value, hash, prev, curr);
    }
    slots_.leaveCriticalSection();
    return stored;
}

template <class Ops>
auto VeskWriter<Ops>::insert(const Value& value, std::uint32_t hash, SlotLink* prev, SlotLink* curr)
    -> Value* {
    if (mustGrow()) [[unlikely]] {
        // The value may lie in the file, which is about to move.
        Value copy;
        Ops::Marshall::fromSlot(copy, reinterpret_cast<const std::byte*>(&value));
        growSlots(prev, curr);
        return insert(copy, hash, prev, curr);
    }
    const std::uint32_t index = slots_.takeFreeSlot(Ops::rhash(hash));
    SlotWords& slot = slots_.slot(index);
    slot.link.nextIs(Mem::StopPoint::slotOwnLink, prev->next());
    slots_.rewrite(slot, value);
    prev->nextIs(Mem::StopPoint::linkSlot, index);
    PELLO_TRACE(*this, 9, tagOf("write"), "new {} bucket:{} slot:{} next:{}", slots_.keyOf(slot),
                hashMap_.bucketOf(hash), index, slot.link.next());
    growBucketsIfDue();
    notifyChange(index);
    return valueOf(slot);
}

template <class Ops>
void VeskWriter<Ops>::growSlots(SlotLink*& prev, SlotLink*& curr) {
    {
        const AutoMemMove<SlotLink> keepPrev(slots_.mapping(), prev);
        const AutoMemMove<SlotLink> keepCurr(slots_.mapping(), curr);
        if (!slots_.grow()) slots_.alloc();
    }
    if constexpr (Ops::notifying) torvu_.numSlotsIs(slots_.capacity());
}

template <class Ops>
bool VeskWriter<Ops>::remove(const Key& keyArgument, Value& out) {
    const Key key = keyArgument; // it may lie in `out`, or in the table
    const std::uint32_t hash = Ops::hash(key, this->hashSeed_);
    guardDirect("remove", "removing key", key);
    const std::uint32_t bucket = hashMap_.bucketOf(hash);
    SlotLink* prev = nullptr;
    SlotLink* curr = nullptr;
    if (!hashMap_.find(key, bucket, prev, curr, hash)) {
        PELLO_TRACE(*this, 9, tagOf("remove"), "{} bucket:{} not found", key, bucket);
        return false;
    }
    slots_.enterCriticalSection();
    const std::uint32_t index = prev->next();
    SlotWords& slot = slots_.slot(index);
    Ops::Marshall::fromSlot(out, slot.value());
    prev->nextIs(Mem::StopPoint::unlinkSlot, slot.link.next());
    slots_.freeSlot(index);
    ++counters_.removed;
    const std::uint32_t threshold = dueShrinkThreshold();
    notifyChange(index);
    PELLO_TRACE(*this, 9, tagOf("remove"), "{} bucket:{} slot:{}", key, bucket, index);
    doMaybeShrinkSlots(threshold);
    if (hashMap_.shrinksBuckets() &&
        slots_.header().occupiedSlots() < hashMap_.shrinkBucketsThreshold()) {
        hashMap_.shrinkBuckets();
    }
    slots_.leaveCriticalSection();
    return true;
}

template <class Ops>
auto VeskWriter<Ops>::lookup(const Key& key, bool& found, void* buffer) const -> const Value* {
    ++counters_.lookups;
    if (const Value* const value = hashMap_.lookup(key, found)) return value;
    slots_.lastReadIsNone();
    return this->absentInto(buffer);
}

template <class Ops>
auto VeskWriter<Ops>::directWrite(const Value& value) -> Value* {
    const std::uint32_t hash = Ops::hash(Ops::key(value), this->hashSeed_);
    guardDirect("directWrite", "modifying key", Ops::key(value));
    slots_.enterCriticalSection();
    SlotLink* curr = nullptr;
    const bool found =
        hashMap_.find(Ops::key(value), hashMap_.bucketOf(hash), directPrev_, curr, hash);
    return openDirect(value, hash, found, curr);
}

template <class Ops>
auto VeskWriter<Ops>::openDirect(const Value& value, std::uint32_t hash, bool found, SlotLink* curr)
    -> Value* {
    if (!found && mustGrow()) [[unlikely]] {
        Value copy;
        Ops::Marshall::fromSlot(copy, reinterpret_cast<const std::byte*>(&value));
        growSlots(directPrev_, curr);
        return openDirect(copy, hash, found, curr);
    }
    const std::uint32_t index = found ? directPrev_->next() : slots_.takeFreeSlot(Ops::rhash(hash));
    SlotWords& slot = slots_.slot(index);
    ++counters_.directOperations;
    const bool occupied = slot.occupied();
    std::byte* const target = occupied ? slots_.lookaside().value() : slot.value();
    Ops::Marshall::toSlot(occupied ? Mem::StopPoint::lookasideValue : Mem::StopPoint::slotValue,
                          target, value);
    PELLO_TRACE(*this, 9, tagOf("directWrite"), "{}{} bucket:{} slot:{} next:{}",
                Ops::key(*valueAt(target)), found ? " existing " : " new ", hashMap_.bucketOf(hash),
                index, slot.link.next());
    directSlot_ = index;
    directNew_ = !found;
    Mem::fullBarrier();
    return valueAt(target);
}

template <class Ops>
auto VeskWriter<Ops>::directUpdate(const Key& keyArgument) -> Value* {
    const Key key = keyArgument;
    guardDirect("directUpdate", "modifying key", key);
    slots_.enterCriticalSection();
    const CriticalSectionAnchor anchor(slots_);
    const std::uint32_t hash = Ops::hash(key, this->hashSeed_);
    SlotLink* curr = nullptr;
    if (!hashMap_.find(key, hashMap_.bucketOf(hash), directPrev_, curr, hash)) return nullptr;
    ++counters_.directOperations;
    directSlot_ = directPrev_->next();
    directNew_ = false;
    SlotWords& slot = slots_.slot(directSlot_);
    Mem::fullBarrier();
    return slot.occupied() ? valueAt(slots_.lookaside().value()) : valueOf(slot);
}

template <class Ops>
void VeskWriter<Ops>::directCommit() {
    PELLO_TRACE(*this, 9, tagOf("directCommit"), "slot: {}", directSlot_);
    if (directSlot_ == kNoSlot) {
        Pello::fatal(debugHandler().get(), tagOf("directCommit"),
                     "not in direct mode! Make sure the DirectIs/Commit are properly paired!");
    }
    ++counters_.directCommits;
    const std::uint32_t index = directSlot_;
    SlotWords& slot = slots_.slot(index);
    if (directNew_) slot.link.nextIs(Mem::StopPoint::slotOwnLink, directPrev_->next());
    if (slot.occupied()) {
        SlotWords& image = slots_.lookaside();
        checkDirectKey(slot, *valueAt(image.value()));
        Mem::publish(Mem::StopPoint::lookasideRhash, image.rhashWord, slot.rhash());
        slot.beginRewrite();
        Ops::Marshall::toSlot(Mem::StopPoint::slotValue, slot.value(), *valueAt(image.value()));
        slot.endRewrite();
    } else {
        checkDirectKey(slot, *valueOf(slot));
        slot.occupy();
    }
    directSlot_ = kNoSlot;
    if (directNew_) {
        directPrev_->nextIs(Mem::StopPoint::linkSlot, index);
        directNew_ = false;
    }
    growBucketsIfDue();
    notifyChange(index);
    slots_.leaveCriticalSection();
}

template <class Ops>
void VeskWriter<Ops>::checkDirectKey([[maybe_unused]] const SlotWords& slot,
                                     [[maybe_unused]] const Value& value) const {
#if !defined(NDEBUG)
    const std::uint32_t rhash = Ops::rhash(Ops::hash(Ops::key(value), this->hashSeed_));
    if (rhash != slot.rhash()) {
        Pello::fatal(debugHandler().get(), tagOf("directCommit"),
                     "key of directSlot:{} changed to {}", directSlot_, Ops::key(value));
    }
#endif
}

template <class Ops>
bool VeskWriter<Ops>::quiesced() const {
    if constexpr (Ops::notifying) return torvu_.quiesced();
    return true;
}

template <class Ops>
bool VeskWriter<Ops>::clientQuiesced(const Pello::String& name) const {
    if (name.empty()) return false;
    if constexpr (Ops::notifying) return torvu_.clientQuiesced(name);
    return true;
}

template <class Ops>
Writer::Counters VeskWriter<Ops>::writerCounters() const {
    Writer::Counters counters = counters_;
    counters.bucketResizes = bucketCounters_.resizes;
    if (slots_.attached()) {
        counters.bucketsMappedSize = bucketCounters_.mappedSize;
        counters.highWaterOccupancy = slots_.header().highWaterOccupancy();
        counters.slotsMappedSize = slots_.mapping().size();
    }
    return counters;
}

template <class Ops>
MoxSharedMem::MountStatus VeskWriter<Ops>::mountStatus() const {
    const auto status = this->initialized() ? MoxSharedMem::MountStatus::mounted
                                            : MoxSharedMem::MountStatus::notMounted;
    PELLO_TRACE(*this, 5, tagOf("mountStatus"), "{}", static_cast<std::uint32_t>(status));
    return status;
}

template <class Ops>
void VeskWriter<Ops>::validateVersionAnchor() const {
    const Mem::VersionAnchor& anchor = slots_.lastRead();
    if (anchorHook_ != nullptr) anchorHook_(anchor);
    anchor.validate(*debugHandler(), slots_.mapping().base(), slots_.mapping().size());
}

template <class Ops>
bool VeskWriter<Ops>::validateTable(SharedMem::RavoId id, Pello::String* error) {
    Validator<Ops> validator(*this);
    const typename VeskCore::WriterHashMap<Ops>::ValidatorScope scope(hashMap_, validator);
    const bool ok = validator.validate(id);
    if (error != nullptr) *error = validator.error();
    return ok;
}

template <class Ops>
bool VeskWriter<Ops>::load(std::span<const std::byte> slots, std::span<const std::byte> buckets,
                           SharedMem::RavoId id, Pello::String& error) {
    Pello::String slotError;
    const bool bucketsLoaded = hashMap_.buckets().load(buckets, id, error);
    const bool slotsLoaded = slots_.load(slots, id, slotError);
    if (bucketsLoaded && !slotsLoaded) error = slotError;
    if (!bucketsLoaded || !slotsLoaded) return false;
    hashMap_.thresholdsUpdate();
    return validateTable(id, &error);
}

template <class Ops>
bool VeskWriter<Ops>::validate() {
    if (!slots_.attached()) return false;
    const bool sound = validateTable(ravoId());
    const bool ok = life_.ownerFileSound() && sound;
    if (!ok) life_.traceDump("validate");
    return ok;
}

template <class Ops>
bool VeskWriter<Ops>::validateFiles() {
    hashMap_.buckets().validateFile();
    Util::validateFile(slots_.mapping());
    // A table in process memory has no file that could hold another identity; a marker is that of
    // its namesake in shared memory.
    if (!life_.localMem())
        SharedMem::RavoFile(*debugHandler(), rootPath_, false).validate(ravoId());
    life_.validateOwnerFile();
    if (!life_.localMem()) rootPath_.removeFile(Util::CORRUPTION_FILENAME);
    return true;
}

template <class Ops>
void VeskWriter<Ops>::doDetach() {
    PELLO_TRACE(*this, 5, tagOf("detach"), "owner:{} localMem_:{} rootPath:{}", life_.owner(),
                life_.localMem(), rootPath_);
    if (directOpen()) {
        const Value& open = openDirectValue();
        Pello::fatal(debugHandler().get(), tagOf("detach"),
                     "unbalanced directSlot:{} containing value:{} - Make sure the "
                     "DirectIs/Commit are properly paired!",
                     directSlot_, open);
    }
    life_.disown();
    detachFiles();
    life_.release();
    this->initializedIs(false);
}

} // namespace Vesk

#include "Vesk/WriterShrink.h"
