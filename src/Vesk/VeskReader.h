#pragma once

// A table as another process reads it: straight from the writer's files, without a lock, without a
// system call for a read, and without telling the writer.
//
// Who may call: one thread. Returned values are copies, in the caller's buffer or in the reader's
// own, which the next read overwrites.
//
// R10 After a read, and before corruption is reported, the versions of both counts are compared
//     with those that the read was made for. When one differs the files are mapped anew and the
//     read is made again. Only what no resize explains is corruption.
// R11 A table has one identity, in `ravo` and in both headers. A reader takes over no header of
//     another one: it was formatted anew, with another seed.
// R12 What is mapped beyond the end of a file reads as zeros: the writer truncates files that are
//     mapped. By then a version has changed (I6, I10), and the read is made again.
//
// The rules for slots are in Vesk/SlotReader.h, those for chains in VeskCore/ReaderHashMap.h. Reads
// allocate nothing, but for a resize that has to be followed.

#include "Mem/Atomics.h"
#include "Pello/Time.h"
#include "Pello/TypeName.h"
#include "SharedMem/RavoFile.h"
#include "Vesk/SlotReader.h"
#include "Vesk/Util.h"
#include "Vesk/VeskInterface.h"
#include "VeskCore/ReaderHashMap.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace Vesk {

template <class Ops>
class VeskReader : public VeskInterface<Ops>, public Pello::Debuggable {
  public:
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;

    /// Maps nothing and makes nothing. The counters are the caller's, or with null its own.
    VeskReader(std::shared_ptr<Pello::Platform::DebugHandler> handler, const Pello::String& path,
               const Ops& ops, Reader::Counters* counters)
        : VeskInterface<Ops>(ops)
        , Debuggable(handler)
        , rootPath_(*handler, path, false)
        , ownCounters_(counters == nullptr ? std::make_unique<Reader::Counters>() : nullptr)
        , counters_(counters == nullptr ? *ownCounters_ : *counters)
        , slots_(handler, rootPath_, Pello::typeName<typename Value::FrameworkValue>(), counters_,
                 this->hashSeed_)
        , hashMap_(handler, rootPath_, slots_, this->hashSeed_, counters_) {}
    ~VeskReader() override { doDetach(); }

    /// Attaches to the writer's files. False, with the reason traced at level 0, when they are not
    /// there or not sound; a marker is left in the table's folder for the latter. Throws
    /// `InvalidInitializeException` on a processor that cannot do it.
    bool initialize(const Pello::String& event) override;
    void detach(bool /*force*/) override { doDetach(); }

    /// The value in `buffer` (a `Value`), or in the reader's own; the default value for an absent
    /// key, which is then also copied into `buffer`.
    const Value* lookup(const Key& key, bool& found, void* buffer) const override;
    bool first(Value& out, IterHint& hint) const override;
    bool next(const Key& key, Value& out, IterHint& hint) const override;

    /// The value that a slot holds; false when it holds none, and then `fallback` gets the default
    /// value when it is given.
    bool getValue(unsigned slotIndex, Value& value, void* fallback);
    /// The same into untyped memory of a value's size, which `size` becomes.
    bool getValue(unsigned slotIndex, void* buffer, unsigned& size);

    std::uint32_t members() const override {
        return slots_.attached() ? slots_.header().occupiedSlots() : 0;
    }
    std::uint32_t buckets() const override { return hashMap_.buckets().numBuckets(); }
    std::uint32_t minSize() const override { return 0; }
    std::uint32_t maxSize() const override {
        return slots_.attached() ? slots_.header().tableSize() : 0;
    }
    std::uint32_t capacity() const override { return slots_.capacity(); }
    VeskType type() const override { return VeskType::reader; }
    bool quiesced() const override { return this->initialized(); }
    Reader::Counters readerCounters() const override {
        counters_.slotsMappedSize = slots_.mappedSize();
        counters_.buckets.mappedSize = hashMap_.buckets().mappedSize();
        return counters_;
    }
    Mem::OruRootPath rootPath() const override { return rootPath_; }
    Pello::String veskName() const override { return rootPath_.dirName(); }
    MoxSharedMem::MountStatus mountStatus() const override {
        return this->initialized() ? MoxSharedMem::MountStatus::mounted
                                   : MoxSharedMem::MountStatus::notMounted;
    }
    SharedMem::RavoId ravoId() const override { return ravoId_; }
    /// Throws `VersionMismatchException` when the slot that was read last has changed since. Only
    /// after a read that found its entry.
    void validateVersionAnchor() const override { slots_.validateLastRead(); }
    Mem::CacheVersionAnchor getCacheVersionAnchor() const override {
        return {slots_.lastRead().sequence, slots_.lastRead().offset};
    }

    /// Follows resizes of the writer; true when there were any.
    bool doResize() const;
    /// Name and both headers as text.
    Pello::String dumpHeaders() const;
    SlotReaderTable<Ops>& slotTable() const { return slots_; }

  private:
    static Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
        return {"VeskReader", "Vesk/VeskReader", operation, line};
    }

    /// A key that a read may compare with while it overwrites `out`: a copy when it lies in there.
    class KeyApart {
      public:
        KeyApart(const Key& key, const Value& out)
            : key_(&key) {
            const auto at = reinterpret_cast<std::uintptr_t>(&key);
            const auto begin = reinterpret_cast<std::uintptr_t>(&out);
            if (at + sizeof key > begin && at < begin + sizeof out) key_ = &copy_.emplace(key);
        }
        KeyApart(const KeyApart&) = delete;
        KeyApart& operator=(const KeyApart&) = delete;
        const Key& operator*() const { return *key_; }

      private:
        std::optional<Key> copy_;
        const Key* key_;
    };

    bool refresh() const {
        const bool slots = slots_.refresh();
        const bool buckets = hashMap_.buckets().refresh();
        return slots || buckets;
    }
    /// Runs a read until no resize has overtaken it; `onResize` before each new try.
    template <class Read, class OnResize>
    bool retryOnResize(Read&& read, OnResize&& onResize) const;
    void doDetach();
    bool refuse(const char* what) const;
    bool refuseFile(const char* what, const Pello::String& error) const;

    Mem::OruRootPath rootPath_;
    std::unique_ptr<Reader::Counters> ownCounters_;
    Reader::Counters& counters_;
    mutable SlotReaderTable<Ops> slots_;
    mutable VeskCore::ReaderHashMap<Ops> hashMap_;
    SharedMem::RavoId ravoId_;
    mutable Value scratch_;
};

template <class Ops>
bool VeskReader<Ops>::initialize(const Pello::String& event) {
    const char* const operation = "initialize";
    if (!Mem::Atomics::checkCpuSupport()) {
        Pello::raise<Pello::InvalidInitializeException>(tagOf(operation),
                                                        "Hardware does not support Atomics");
    }
    if (this->initialized()) return true;
    if (!hashMap_.buckets().attach()) return refuse("failed to attach to buckets");
    if (!slots_.attach()) return refuse("failed to attach to slots");
    const SharedMem::RavoFile ravoFile(*debugHandler(), rootPath_, false);
    ravoId_ = ravoFile.read();
    const double mtime = ravoFile.mtime();
    if (ravoId_ == SharedMem::RavoId()) {
        refuse("failed to read ravo file");
        return refuse(dumpHeaders().c_str());
    }
    Pello::String error;
    if (!hashMap_.buckets().validate(ravoId_, error)) {
        return refuseFile("failed to validate buckets", error);
    }
    if (!slots_.validate(ravoId_, error)) return refuseFile("failed to validate slots", error);
    this->initializedIs(true);
    PELLO_TRACE(*this, 1, tagOf(operation),
                "success {} capacity:{} ravoId:{} mtime:{} delay:{} event:{}", rootPath_,
                capacity(), ravoId_, mtime, Pello::wallTime() - mtime, event);
    return true;
}

template <class Ops>
bool VeskReader<Ops>::refuse(const char* what) const {
    PELLO_TRACE(*this, 0, tagOf("initialize"), "{}", what);
    return false;
}

template <class Ops>
bool VeskReader<Ops>::refuseFile(const char* what, const Pello::String& error) const {
    refuse(what);
    refuse(dumpHeaders().c_str());
    Util::writeCorruptionFile(rootPath_, error);
    return false;
}

template <class Ops>
Pello::String VeskReader<Ops>::dumpHeaders() const {
    if (!slots_.attached() || !hashMap_.buckets().attached()) return {};
    return fmt::format("Vesk table \"{}\"\n\n\n{}\n\n{}\n\n", rootPath_, slots_.header().toString(),
                       hashMap_.buckets().header().toString());
}

template <class Ops>
void VeskReader<Ops>::doDetach() {
    if (!this->initialized()) {
        PELLO_TRACE(*this, 5, tagOf("detach"), "{}", "already detached");
        return;
    }
    hashMap_.buckets().detach();
    slots_.detach();
    this->initializedIs(false);
    PELLO_TRACE(*this, 1, tagOf("detach"), "{} detached", rootPath_);
}

template <class Ops>
bool VeskReader<Ops>::doResize() const {
    const bool slots = slots_.doResize();
    const bool buckets = hashMap_.buckets().doResize();
    return slots || buckets;
}

template <class Ops>
template <class Read, class OnResize>
bool VeskReader<Ops>::retryOnResize(Read&& read, OnResize&& onResize) const {
    bool triedAnew = false;
    while (true) {
        try {
            const bool result = read();
            if (!slots_.changed() && !hashMap_.buckets().changed()) [[likely]]
                return result;
            refresh(); // what a resize that failed has left unmapped
            doResize();
        } catch (const Pello::CorruptionDetectedException&) {
            // What was truncated away reads as zeros, also when the file has it again: look once.
            const bool refreshed = !std::exchange(triedAnew, true) && refresh();
            if (!refreshed && !doResize()) throw;
        }
        onResize();
    }
}

template <class Ops>
auto VeskReader<Ops>::lookup(const Key& keyArgument, bool& found, void* buffer) const
    -> const Value* {
    ++counters_.lookups;
    Value& out = buffer != nullptr ? *static_cast<Value*>(buffer) : scratch_;
    const KeyApart key(keyArgument, out);
    found = retryOnResize([&] { return hashMap_.lookup(*key, out); }, [] {});
    if (found) return &out;
    slots_.lastReadIsNone();
    return this->absentInto(buffer);
}

template <class Ops>
bool VeskReader<Ops>::first(Value& out, IterHint& hint) const {
    const auto read = [&] {
        return hashMap_.buckets().numBuckets() != 0 && hashMap_.first(0, out, hint);
    };
    if (retryOnResize(read, [] {})) return true;
    slots_.lastReadIsNone();
    out = Ops::defaultValue();
    return false;
}

template <class Ops>
bool VeskReader<Ops>::next(const Key& keyArgument, Value& out, IterHint& hint) const {
    const KeyApart key(keyArgument, out);
    const auto forget = [&hint] { hint.bucket = IterHint().bucket; };
    if (retryOnResize([&] { return hashMap_.next(*key, out, hint); }, forget)) return true;
    slots_.lastReadIsNone();
    return false;
}

template <class Ops>
bool VeskReader<Ops>::getValue(unsigned slotIndex, Value& value, void* fallback) {
    const auto read = [&] {
        return slotIndex < slots_.capacity() && slots_.read(slotIndex, value).occupied();
    };
    if (retryOnResize(read, [] {})) return true;
    slots_.lastReadIsNone();
    if (fallback != nullptr) this->absentInto(fallback);
    return false;
}

template <class Ops>
bool VeskReader<Ops>::getValue(unsigned slotIndex, void* buffer, unsigned& size) {
    size = sizeof(Value);
    return getValue(slotIndex, *static_cast<Value*>(buffer), nullptr);
}

} // namespace Vesk
