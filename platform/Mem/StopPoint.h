#pragma once

// Named places directly before each store, and each change of a file, that other processes, or the
// next writer after a crash, can see. A test stops or kills the process there and looks at what it
// left. A release build (RSVPVESK_STOP_POINTS not defined) has no trace of them.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#if defined(RSVPVESK_STOP_POINTS)
#include <atomic>
#endif

namespace Mem {

/// One name per publishing store of the protocol, then per change of a file, in the order in which
/// docs/protocol.md lists them.
enum class StopPoint : std::uint8_t {
    criticalEnter,  // the critical section flag, set
    criticalLeave,  // the critical section flag, cleared
    headerFormat,   // the image of the common header
    slotFormat,     // the link word of a slot that is being formatted
    freeHead,       // the head of the free list
    identity,       // the identity in the header of a slot file that is formatted
    occupiedCount,  // the number of occupied slots
    slotRhash,      // the hash of a slot that is not yet reachable
    slotOwnLink,    // the link word of a slot that is not yet reachable
    lookasideRhash, // the hash of the lookaside image
    lookasideValue, // the value of the lookaside image
    rewriteBegin,   // the sequence word, first half of a rewrite
    slotValue,      // the value of a slot
    rewriteEnd,     // the sequence word, second half of a rewrite
    linkSlot,       // the link that makes a slot reachable
    unlinkSlot,     // the link that makes a slot unreachable
    relinkSlot,     // the link that makes a moved entry's new slot reachable instead of the old one
    clearOccupied,  // the sequence word of a slot that was unlinked
    freeLink,       // the link word of a freed slot
    slotCount,      // the published number of slots
    bucketFormat,   // the words and the header of a fresh bucket file
    bucketSplit,    // the word of an upper bucket before it is in use
    bucketCount,    // the published number of buckets
    bucketCut,      // the end of a lower chain after doubling
    bucketJoin,     // the end of a lower chain before halving
    makeFile,       // a file that is not there yet, made empty
    reserveFile,    // the room for a file that becomes larger
    truncateFile,   // a file that becomes smaller
    removeFile,     // a file's name, removed
    ownerRecord,    // the record of the owner file
    ravoRecord,     // the record of the ravo file
    count_
};

inline constexpr std::size_t kStopPoints = static_cast<std::size_t>(StopPoint::count_);

inline constexpr std::array<std::string_view, kStopPoints> kStopPointNames{
    "criticalEnter",  "criticalLeave", "headerFormat",  "slotFormat",  "freeHead",
    "identity",       "occupiedCount", "slotRhash",     "slotOwnLink", "lookasideRhash",
    "lookasideValue", "rewriteBegin",  "slotValue",     "rewriteEnd",  "linkSlot",
    "unlinkSlot",     "relinkSlot",    "clearOccupied", "freeLink",    "slotCount",
    "bucketFormat",   "bucketSplit",   "bucketCount",   "bucketCut",   "bucketJoin",
    "makeFile",       "reserveFile",   "truncateFile",  "removeFile",  "ownerRecord",
    "ravoRecord"};

/// Whether it stands before a change of a file, not before a store.
constexpr bool isOfFiles(StopPoint point) { return point >= StopPoint::makeFile; }

#if defined(RSVPVESK_STOP_POINTS)

using StopHook = void (*)(StopPoint);

inline std::atomic<StopHook> stopHook{nullptr};

inline void stopAt(StopPoint point) {
    if (const StopHook hook = stopHook) hook(point);
}

#else

constexpr void stopAt(StopPoint) {}

#endif

} // namespace Mem
