#pragma once

// A reader's view of the slot file, in a process other than the writer's (or in the same one).
//
// Who may call: one thread. It maps the file for reading, takes no lock and tells nobody.
//
// R1  A value is taken only when one and the same sequence word stood before and behind the copy.
//     Under LOOKASIDE the complete value is in the header's lookaside slot, which the writer fills
//     before it sets the bit and leaves alone until it clears it (I3). So a copy is never torn, and
//     a writer that stops or dies at any store stops no reader: its last word is stable.
// R2  Every index from shared memory is checked against the slots that are mapped.
// R3  The header is taken as a snapshot between two equal loads of the slot count's version,
//     together with the size of the file: a file that the writer truncates meanwhile is no
//     corruption.
//
// The copying repeats for as long as the writer rewrites that one slot meanwhile; it ends with the
// first copy that no rewrite overlaps.

#include "Mem/ReaderMapping.h"
#include "Mem/Tracked.h"
#include "Mem/VersionAnchor.h"
#include "Pello/Debug.h"
#include "Vesk/Counters.h"
#include "Vesk/SlotTable.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace Vesk {

/// The part that depends on sizes only.
class SlotReaderBase : public Pello::Debuggable {
  public:
    SlotReaderBase(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                   const Mem::OruRootPath& rootPath, SlotFileShape shape,
                   Reader::Counters& counters, std::uint32_t& hashSeed);

    /// Maps the header and takes the hash seed from it; the slots are mapped by `doResize`. False,
    /// with a trace at level 0, when there is no such file.
    bool attach();
    void detach();

    /// Maps the slots anew when the writer has published another count; true when it had. Throws
    /// `CorruptionDetectedException` when the count cannot be that of the file, and
    /// `MemoryResourceException` when it cannot be mapped; then nothing is until `refresh`.
    bool doResize();
    /// When nothing is mapped since a `doResize` that failed, or a page reads as zeros because it
    /// was truncated away: maps the header anew, and the next `doResize` the slots. True when it
    /// did.
    bool refresh();

    /// Checks a snapshot of the header. Never throws. From then on `doResize` takes no header of
    /// another identity: such a table was formatted anew, and has another hash seed too.
    bool validate(SharedMem::RavoId id, Pello::String& error);

    bool attached() const { return mapping_.base() != nullptr; }
    /// The writer has published another count since, or the mapping is lost.
    bool changed() const {
        return attached() ? numSlots_.version != header().numSlots().version : mapping_.isOpen();
    }
    const SlotHeaderCommon& header() const {
        return *reinterpret_cast<const SlotHeaderCommon*>(mapping_.base());
    }
    /// Slots as this reader has mapped them.
    std::uint32_t capacity() const { return numSlots_.value; }
    std::uint64_t mappedSize() const { return mapping_.size(); }

    /// The slot that was read last, if the result of the read was an entry.
    const Mem::VersionAnchor& lastRead() const { return lastRead_; }
    void lastReadIsNone() { lastRead_ = {}; }
    /// Throws `VersionMismatchException` when that slot has changed since.
    void validateLastRead() const {
        lastRead_.validate(*debugHandler(), mapping_.base(), mapping_.size());
    }
    /// The slot of the notification that is looked at; followed through remaps.
    Mem::VersionAnchor& notificationAnchor() { return notificationAnchor_; }

    [[noreturn]] void raiseOutOfRange(std::uint32_t index) const;

  protected:
    void slotWasRead(const SlotWords& slot, std::uint32_t sequence) {
        const auto offset =
            reinterpret_cast<const std::byte*>(&slot.sequenceWord) - mapping_.base();
        lastRead_ = {sequence, static_cast<std::uint32_t>(offset), mapping_.base()};
    }

    const std::byte* slots_ = nullptr;
    std::uint32_t indexable_ = 0;
    Reader::Counters& counters_;
    Mem::Tracked<Mem::ReaderMapping> mapping_;

  private:
    /// Copies the header, and returns the size of the file of the same moment.
    std::uint64_t takeSnapshot();
    const SlotHeaderCommon& snapshot() const {
        return *reinterpret_cast<const SlotHeaderCommon*>(snapshot_.data());
    }
    void forgetSlots();
    void traceHeader(const char* operation) const;

    const Mem::OruRootPath& rootPath_;
    SlotFileShape shape_;
    std::uint32_t& hashSeed_;
    Mem::VersionedRef<std::uint32_t> numSlots_{Mem::VersionedRef<std::uint32_t>::kNoVersion, 0};
    std::vector<std::uint64_t> snapshot_;
    SharedMem::RavoId ravoId_;
    Mem::VersionAnchor lastRead_;
    Mem::VersionAnchor notificationAnchor_;
};

template <class Ops>
class SlotReaderTable final : public SlotReaderBase {
  public:
    using Value = typename Ops::Value;

    static constexpr std::uint32_t kSlotSize = sizeof(SlotWords) + sizeof(Value);

    SlotReaderTable(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                    const Mem::OruRootPath& rootPath, const Pello::String& typeName,
                    Reader::Counters& counters, std::uint32_t& hashSeed)
        : SlotReaderBase(std::move(handler), rootPath,
                         SlotFileShape{kSlotSize, sizeof(Value), typeName}, counters, hashSeed) {}

    /// The words of a slot whose index came from shared memory. Throws
    /// `CorruptionDetectedException` when there is no such slot.
    const SlotWords& words(std::uint32_t index) const {
        if (index >= indexable_) [[unlikely]]
            raiseOutOfRange(index);
        return *reinterpret_cast<const SlotWords*>(slots_ + std::size_t{index} * kSlotSize);
    }

    /// What a slot held at one moment, beside its value.
    struct Read {
        std::uint32_t rhash;
        std::uint32_t sequence;

        bool occupied() const { return (sequence & SlotWords::kOccupied) != 0; }
    };

    /// Reads a slot as it was at one moment (R1).
    Read read(std::uint32_t index, Value& out) {
        const SlotWords& slot = words(index);
        Read result{0, slot.sequence()};
        while (true) {
            if ((result.sequence & SlotWords::kLookaside) != 0) [[unlikely]] {
                const SlotWords& image = lookaside();
                result.rhash = image.rhash();
                Ops::Marshall::fromSlot(out, image.value());
                ++counters_.lookasideReads;
            } else {
                result.rhash = slot.rhash();
                Ops::Marshall::fromSlot(out, slot.value());
            }
            const std::uint32_t again = slot.sequence();
            if (again == result.sequence) [[likely]]
                break;
            result.sequence = again;
        }
        slotWasRead(slot, result.sequence);
        return result;
    }

    /// The same as one number: the rhash in the high half, the sequence word in the low half.
    std::uint64_t getValue(std::uint32_t index, Value& out) {
        const Read result = read(index, out);
        return std::uint64_t{result.rhash} << 32U | result.sequence;
    }

  private:
    const SlotWords& lookaside() const {
        return *reinterpret_cast<const SlotWords*>(mapping_.base() + SlotHeaderCommon::kSize);
    }
};

} // namespace Vesk
