#pragma once

// The writer's owner of a slot file: making, taking over or re-formatting it, the free list,
// growth, and the critical-section flag.
//
// Who may call: the one thread of the one writer.
//
// Invariants, beside those of Vesk/SlotWords.h:
// I5  Outside a change, a slot is either on the free list and not OCCUPIED, or counted in
//     `occupiedSlots`.
// I6  The slot count is published only when the file is large enough for it. A re-format is the
//     exception, here as for I1 and I10: it truncates first, since nothing of the old table is to
//     be kept, and starts link states anew; the versions of the counts tell readers.
// I7  While a change is under way the critical-section flag is set in the file. An operation that
//     leaves by an exception leaves the flag set, but for the full table, which has changed
//     nothing. The flag is no lock: it tells the validator of the next writer that a change did
//     not end, and tells this writer that it was re-entered. A direct update clears it while its
//     caller composes the value; what its commit leaves half done shows in the sequence word.
//
// A crash leaves the flag set, hence a table that the next writer formats anew; or, between the
// format of a new header and that of its last slot, slots that are neither free nor occupied,
// which the validator finds by their number.

#include "Pello/Scheduler.h"
#include "Vesk/Counters.h"
#include "Vesk/Operations.h"
#include "Vesk/SlotTable.h"

#include <cstdint>
#include <exception>

namespace Vesk {

/// A fixed-size table has no free slot.
struct TableFullException : Pello::Exception {
    using Exception::Exception;
};

struct SlotWriterOptions {
    std::uint32_t tableSize = 0;
    bool fixedSize = false;
    bool shrinkSlots = false;
};

class SlotWriterBase : public SlotTableBase {
  public:
    /// `defaultValue` has the size that `shape` says.
    SlotWriterBase(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                   const Mem::OruRootPath& rootPath, Mem::SharedMemWrapper::Options options,
                   SlotFileShape shape, bool notifying, const void* defaultValue,
                   Writer::Counters& counters, std::uint32_t& hashSeed,
                   SlotWriterOptions tableOptions);

    /// 1: a new file was formatted; 2: an existing one was taken over; 4: an existing one was
    /// formatted anew. Throws `InvalidInitializeException` or `MemoryResourceException`.
    unsigned attach(SharedMem::RavoId id);
    /// Takes the image of a slot file into process memory and checks its header; when that is not
    /// sound the table has no slots.
    bool load(std::span<const std::byte> image, SharedMem::RavoId id, Pello::String& error);
    void detach() override;
    std::uint32_t capacity() const override { return numSlots_; }
    void cleanup();

    std::uint32_t tableSize() const { return options_.tableSize; }
    std::uint32_t minimumCapacity() const { return minimumCapacity_; }
    std::uint32_t shrinkThreshold() const { return shrinkThreshold_; }

    /// Formats the slots `start` to `end` - 1 and puts them on the empty free list in ascending
    /// order.
    void initializeSlots(std::uint32_t start, std::uint32_t end);

    /// Enlarges the file by about a tenth; false for a fixed-size table. The free list must be
    /// empty. The mapping may move.
    bool grow();

    /// Takes the free slots from `limit` on off the free list. Throws `CorruptionDetectedException`
    /// when free and occupied slots are not all. The list may be long and in no order.
    void purgeFreeSlots(std::uint32_t limit, Pello::CriticalTaskSlices slices);
    /// Gives the slots from that number on back, all of which are neither free nor occupied.
    /// Throws `MemoryResourceException` when the file cannot be truncated, with the count published
    /// all the same.
    void shrink(std::uint32_t newNumSlots);

    /// Remaps the file for that many slots. Throws `MemoryResourceException` and changes nothing
    /// when that fails; the caller updates the slot count.
    void resize(std::uint32_t newNumSlots);

    /// The end of an allocation that found no slot: leaves the critical section and throws
    /// `TableFullException`.
    [[noreturn]] void alloc();

    /// Fatal for a table that has no files: one whose attaching failed.
    void checkAttached(const char* operation) const;

    /// Keeps I7. Fatal when a change is under way, and like `checkAttached`.
    void enterCriticalSection() {
        if (header_ == nullptr || header_->inCriticalSection()) [[unlikely]]
            failEntry();
        header_->criticalSectionIs(true);
    }
    void leaveCriticalSection() { header_->criticalSectionIs(false); }

  protected:
    std::uint32_t largestCapacityInPage() const;
    bool takeOver(SharedMem::RavoId id);
    void reformat();
    void format(SharedMem::RavoId id);
    void remapForAttach(std::uint64_t size);
    /// The words of a slot, whatever its value; throws like `slot`.
    SlotWords& wordsOf(std::uint32_t index) const;
    void shrinkThresholdUpdate();
    [[noreturn]] void failEntry() const;

    bool notifying_;
    const void* defaultValue_;
    Writer::Counters& counters_;
    std::uint32_t& hashSeed_;
    SlotWriterOptions options_;
    std::uint32_t minimumCapacity_;
    std::uint32_t shrinkThreshold_ = 0;
    std::uint32_t seedBeforeFormat_ = 0; ///< what the last format of this writer found
};

/// Leaves a critical section at the end of its scope, unless an exception is leaving the scope
/// too: then the flag stays set (I7).
class CriticalSectionAnchor {
  public:
    explicit CriticalSectionAnchor(SlotWriterBase& table)
        : table_(table)
        , exceptionsAtEntry_(std::uncaught_exceptions()) {}
    ~CriticalSectionAnchor() {
        if (std::uncaught_exceptions() == exceptionsAtEntry_) table_.leaveCriticalSection();
    }
    CriticalSectionAnchor(const CriticalSectionAnchor&) = delete;
    CriticalSectionAnchor& operator=(const CriticalSectionAnchor&) = delete;

  private:
    SlotWriterBase& table_;
    int exceptionsAtEntry_;
};

/// The typed operations on slots.
template <class Ops>
class SlotWriterTable final : public SlotTable<Ops, SlotWriterBase> {
  public:
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;

    SlotWriterTable(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                    const Mem::OruRootPath& rootPath, Mem::SharedMemWrapper::Options options,
                    const Pello::String& typeName, Writer::Counters& counters,
                    std::uint32_t& hashSeed, SlotWriterOptions tableOptions)
        : SlotTable<Ops, SlotWriterBase>(
              std::move(handler), rootPath, options,
              SlotFileShape{SlotTable<Ops>::kSlotSize, sizeof(Value), typeName}, Ops::notifying,
              &Ops::defaultValue(), counters, hashSeed, tableOptions) {
        slotAllocator_.setSlotValue = [this](auto*, unsigned int index) { setSlotValue(index); };
    }

    static const Value& valueOf(const SlotWords& slot) {
        return Mem::ownerView<Value>(slot.value());
    }
    static const Key& keyOf(const SlotWords& slot) { return Ops::key(valueOf(slot)); }

    /// Takes the head of the free list, which is not empty, for an entry of that hash.
    std::uint32_t takeFreeSlot(std::uint32_t rhash) {
        SlotHeaderCommon& header = *this->header_;
        const std::uint32_t index = header.freeHead();
        SlotWords& slot = this->slot(index);
        const std::uint32_t following = slot.link.next();
        Mem::publish(Mem::StopPoint::slotRhash, slot.rhashWord, rhash);
        header.freeHeadIs(following);
        const std::uint32_t occupied = header.occupiedSlots() + 1;
        header.occupiedSlotsIs(occupied);
        if (occupied > header.highWaterOccupancy()) header.highWaterOccupancyIs(occupied);
        ++this->counters_.allocated;
        prefetch(following);
        return index;
    }

    /// Returns a slot that was unlinked (I4) to the free list.
    void freeSlot(std::uint32_t index) {
        SlotHeaderCommon& header = *this->header_;
        SlotWords& slot = this->slot(index);
        slot.clearOccupied();
        slot.link.nextIs(Mem::StopPoint::freeLink, header.freeHead());
        header.freeHeadIs(index);
        header.occupiedSlotsIs(header.occupiedSlots() - 1);
    }

    /// Copies the entry of a slot into the first free one, which goes on where it goes on, and
    /// returns that one's number. Nothing leads there yet (I2).
    std::uint32_t move(std::uint32_t fromSlot) {
        const Pello::SourceTag tag("SlotWriterTable", "Vesk/SlotWriter", "move");
        SlotHeaderCommon& header = *this->header_;
        const std::uint32_t toSlot = header.freeHead();
        if (toSlot >= fromSlot) {
            Pello::fatal(this->debugHandler().get(), tag,
                         "should always move entries to lower section fromSlotId:{} toSlotId:{}",
                         fromSlot, toSlot);
        }
        const SlotWords& from = this->slot(fromSlot);
        SlotWords& to = this->slot(toSlot);
        Mem::publish(Mem::StopPoint::slotRhash, to.rhashWord, from.rhash());
        header.freeHeadIs(to.link.next());
        Ops::Marshall::toSlot(Mem::StopPoint::slotValue, to.value(), valueOf(from));
        to.occupy();
        to.link.nextIs(Mem::StopPoint::slotOwnLink, from.link.next());
        PELLO_TRACE(*this, 7, tag, "fromSlotId:{} toSlotId:{}", fromSlot, toSlot);
        return toSlot;
    }

    /// The image that readers take while the slot is under LOOKASIDE (I3).
    void lookasideIs(std::uint32_t rhash, const Value& value) {
        SlotWords& image = this->lookaside();
        Mem::publish(Mem::StopPoint::lookasideRhash, image.rhashWord, rhash);
        Ops::Marshall::toSlot(Mem::StopPoint::lookasideValue, image.value(), value);
    }

    /// Stores a value into a slot that readers may be looking at. Keeps I2 and I3.
    void rewrite(SlotWords& slot, const Value& value) {
        if (slot.occupied()) lookasideIs(slot.rhash(), value);
        slot.beginRewrite();
        Ops::Marshall::toSlot(Mem::StopPoint::slotValue, slot.value(), value);
        slot.endRewrite();
    }

    /// Starts to fetch a slot that is needed soon; an index that is none is ignored. Inlined, for
    /// the compiler drops calls of functions that do nothing but prefetch.
    [[gnu::always_inline]] void prefetch(std::uint32_t index) const {
        constexpr std::size_t kCacheLine = 64;
        if (index > this->highestSlot_) return;
        const std::byte* const slot = this->slots_ + std::size_t{index} * this->kSlotSize;
        for (std::size_t at = 0; at < this->kSlotSize; at += kCacheLine) {
            __builtin_prefetch(slot + at);
        }
    }

    const typename Ops::SlotAllocator& slotAllocator() const { return slotAllocator_; }

  private:
    [[noreturn]] void setSlotValue(unsigned int index) const {
        const Pello::SourceTag tag("SlotAllocator", "Vesk/Operations", "setSlotValue");
        if (index > this->highestSlot_) {
            Pello::raise<Pello::CorruptionDetectedException>(tag, "out-of-range index: {} max:{}",
                                                             index, this->highestSlot_);
        }
        Pello::fatal(this->debugHandler().get(), tag, "Not implemented");
    }

    typename Ops::SlotAllocator slotAllocator_;
};

} // namespace Vesk
