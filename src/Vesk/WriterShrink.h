#pragma once

// Compaction: a table that has lost most of its entries gives the upper part of its slot file back.
// Included by Vesk/VeskWriter.h.
//
// Every entry above the target moves into a free slot below it while readers go on:
//
// I11 An entry that moves is reachable at every store: by its old slot until the link that led
//     there leads to the new one, which is complete and goes on where the old one goes on. The old
//     slot keeps its own link, for readers that stand on it.
// I12 Nothing but moves happens between the first move and the publication of the smaller count,
//     and that comes before the truncation.
//
// A crash leaves the critical-section flag set.

#include "Vesk/VeskWriter.h"

#include <algorithm>
#include <bit>
#include <chrono>

namespace Vesk {

template <class Ops>
void VeskWriter<Ops>::shrink() {
    using namespace std::chrono_literals;
    if (!slots_.attached()) return; // who asks may be late
    if (directOpen()) {
        // The slot of an open operation is not linked, and would not move with the others.
        shrinkLater_ = Pello::Loop::ofThisThread()->timer(10ms, [this] { shrink(); });
        return;
    }
    const std::uint32_t threshold = dueShrinkThreshold();
    // A flag that is set now is that of a change that failed: the next change says so.
    if (threshold == 0 || slots_.header().inCriticalSection()) return;
    slots_.enterCriticalSection();
    const CriticalSectionAnchor anchor(slots_);
    doMaybeShrinkSlots(threshold);
}

template <class Ops>
void VeskWriter<Ops>::doMaybeShrinkSlots(std::uint32_t threshold) {
    const char* const operation = "doMaybeShrinkSlots";
    if (threshold == 0) return;
    if constexpr (Ops::notifying) {
        if (torvu_.shrinkInProgress()) {
            PELLO_TRACE(*this, 5, tagOf(operation), "shrink started, ignoring shrinkThreshold:{}",
                        threshold);
            return;
        }
    }
    const std::uint32_t occupied = slots_.header().occupiedSlots();
    const std::uint32_t target =
        std::max(occupied == 0 ? 0 : 4 * std::bit_floor(occupied), slots_.minimumCapacity());
    PELLO_TRACE(*this, 5, tagOf(operation), "threshold:{} shrinkThreshold:{}{}", target, threshold,
                target < threshold ? " SUPER SHRINK!" : "");
    slots_.purgeFreeSlots(target, Pello::CriticalTaskSlices(criticalTaskCheck_));
    if constexpr (Ops::notifying) torvu_.markShrinkStart();
    Pello::CriticalTaskSlices slices(criticalTaskCheck_);
    std::uint64_t moved = 0;
    for (std::uint32_t from = target; from < slots_.capacity(); ++from) {
        if (!slots_.slot(from).occupied()) {
            PELLO_TRACE(*this, 9, tagOf(operation), "skipping not occupied slot:{}", from);
            continue;
        }
        moveSlot(from);
        ++moved;
        slices.maybeRun();
    }
    if constexpr (Ops::notifying) torvu_.markShrinkEnd();
    hashMap_.linksMoved();
    slots_.shrink(target);
    if constexpr (Ops::notifying) torvu_.numSlotsIs(target);
    PELLO_TRACE(*this, 5, tagOf(operation), "at threshold:{} done", threshold);
    counters_.moved += moved;
}

/// Moves an entry into the first free slot. Keeps I11.
template <class Ops>
void VeskWriter<Ops>::moveSlot(std::uint32_t from) {
    const Pello::SourceTag tag = tagOf("doMaybeShrinkSlots");
    SlotWords& slot = slots_.slot(from);
    slots_.lastReadIs(slot);
    const Key& key = slots_.keyOf(slot);
    const std::uint32_t hash = Ops::hash(key, this->hashSeed_);
    SlotLink* prev = nullptr;
    SlotLink* curr = nullptr;
    if (!hashMap_.find(key, hashMap_.bucketOf(hash), prev, curr, hash)) {
        Pello::fatal(debugHandler().get(), tag, "fromSlot:{} key not found", from);
    }
    if (prev == nullptr || prev->next() != from) {
        Pello::fatal(debugHandler().get(), tag, "fromSlot:{} not referenced", from);
    }
    const std::uint32_t to = slots_.move(from);
    PELLO_TRACE(*this, 9, tag, "moving fromSlot:{} toSlot:{}", from, to);
    prev->nextIs(Mem::StopPoint::relinkSlot, to);
    if constexpr (Ops::notifying) {
        torvu_.notify(to, 0);
        torvu_.tombstone(from);
    }
    slot.clearOccupied();
    notifyChange(from);
}

} // namespace Vesk
