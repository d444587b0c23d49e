#pragma once

// The notification queue's writer.
//
// The queue has no files yet: its records live in this process alone, no reader can follow it, and
// a restart begins an empty one. What stands is what the table needs of it: every change gets the
// next sequence number, and the writer keeps the latest number of each slot. `attach` therefore
// has nothing of its own to report and answers with the slot table's result, so that a restart
// over sound files keeps the entries.

#include "Mem/RootPath.h"
#include "Pello/Debug.h"
#include "SharedMem/RavoId.h"
#include "Vesk/Counters.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace Torvu {

/// What a queue writer asks of the table that owns it.
class TorvuWriterNotifiee {
  public:
    virtual ~TorvuWriterNotifiee() = default;
    /// A shrink that had to wait for the queue's readers may be tried again.
    virtual void shrink() = 0;
    /// All readers have seen every change (true), or no longer (false).
    virtual void handleQuiesced(bool quiesced) = 0;
};

/// A queue entry that names a slot and nothing else.
struct BasicSlot {
    std::uint32_t slot;
};

/// A number that no other queue of this process has.
inline std::uint32_t newTableId() {
    static std::atomic<std::uint32_t> last{0};
    return ++last;
}

template <class Entry, class Position>
class TorvuWriter : public Pello::Debuggable {
  public:
    TorvuWriter(std::shared_ptr<Pello::Platform::DebugHandler> handler, const Mem::OruRootPath&,
                Vesk::Writer::Counters& counters, unsigned pruneMode, TorvuWriterNotifiee&)
        : Debuggable(std::move(handler))
        , counters_(counters)
        , pruneMode_(pruneMode) {}

    /// `slotCode` is what attaching the slot table gave.
    unsigned attach(SharedMem::RavoId, unsigned slotCode, std::uint32_t numSlots) {
        latest_.assign(numSlots, Position{});
        counters_.sequence = 0;
        shrinking_ = false;
        return slotCode;
    }
    void detach() { latest_.clear(); }

    /// Makes room for the records of `numSlots` slots. `notify` itself never allocates.
    void numSlotsIs(std::uint32_t numSlots) { latest_.resize(numSlots); }

    void notify(std::uint32_t slot, unsigned /*priority*/) {
        ++counters_.sequence;
        latest_[slot] = Position{counters_.sequence};
    }

    /// The slot's latest notification is about an entry that has moved away.
    void tombstone(std::uint32_t slot) { latest_[slot] = Position{}; }

    // Around the moves of a shrink. It is over with its last move, since no reader can lag behind.
    void markShrinkStart() { shrinking_ = true; }
    void markShrinkEnd() { shrinking_ = false; }
    bool shrinkInProgress() const { return shrinking_; }

    /// The record of a slot's latest change.
    Position latest(std::uint32_t slot) const { return latest_.at(slot); }
    bool hasRecord(std::uint32_t slot) const {
        return slot < latest_.size() && latest_[slot].sequence != 0;
    }

    /// No reader can be registered, so none lags behind.
    bool quiesced() const { return true; }
    bool clientQuiesced(const Pello::String&) const { return false; }

    unsigned pruneMode() const { return pruneMode_; }
    /// The table's number at the process's accept socket.
    std::uint32_t tableId() const { return tableId_; }

  private:
    Vesk::Writer::Counters& counters_;
    unsigned pruneMode_;
    std::uint32_t tableId_ = newTableId();
    bool shrinking_ = false;
    std::vector<Position> latest_;
};

/// Stands in the place of the queue writer of a table without a queue. It has no operations: code
/// for such a table does not mention the queue.
struct DummyTorvuWriter {
    template <class... Args>
    explicit DummyTorvuWriter(const Args&...) {}
};

} // namespace Torvu

namespace Vesk {

/// The queue's record of a slot: the sequence number of its latest notification, 0 for none.
struct TorvuPos {
    std::uint64_t sequence = 0;
};

} // namespace Vesk
