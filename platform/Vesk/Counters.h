#pragma once

#include <cstdint>

namespace Vesk::Writer {

/// What a writer has done since it attached, and the sizes it has reached. Durations in seconds.
struct Counters {
    std::uint64_t allocated = 0;
    std::uint64_t removed = 0;
    std::uint64_t lookups = 0;
    std::uint64_t directOperations = 0;
    std::uint64_t directCommits = 0;
    std::uint64_t slowNexts = 0;
    std::uint64_t slotGrowths = 0;
    std::uint64_t remaps = 0;
    std::uint64_t slotShrinks = 0;
    std::uint64_t moved = 0;

    double lastBucketGrowTime = 0;
    double longestBucketGrowTime = 0;
    double lastBucketShrinkTime = 0;
    double longestBucketShrinkTime = 0;

    /// Sequence number of the last notification; 0 for a table without a queue.
    std::uint64_t sequence = 0;

    std::uint32_t highWaterOccupancy = 0;
    std::uint64_t slotsMappedSize = 0;
    std::uint64_t bucketsMappedSize = 0;
    std::uint64_t bucketResizes = 0;
    /// Corrupt shared memory that the table's front has met.
    std::uint64_t corruptions = 0;
};

} // namespace Vesk::Writer

namespace VeskCore::Bucket {

struct ReaderCounters {
    std::uint64_t resizes = 0;
    std::uint64_t mappedSize = 0;
};

} // namespace VeskCore::Bucket

namespace Vesk::Reader {

/// What a reader has done since it attached.
struct Counters {
    std::uint64_t lookups = 0;
    /// Values that were under rewrite and were read from the lookaside slot.
    std::uint64_t lookasideReads = 0;
    /// Walks that began again because a link had changed under them.
    std::uint64_t retries = 0;
    std::uint64_t slowNexts = 0;
    std::uint64_t slotResizes = 0;
    /// Resizes of the slots that moved the mapping.
    std::uint64_t remaps = 0;
    VeskCore::Bucket::ReaderCounters buckets;
    std::uint64_t slotsMappedSize = 0;
    /// Corrupt shared memory that the table's front has met.
    std::uint64_t corruptions = 0;
};

} // namespace Vesk::Reader

namespace VeskCore::Bucket {

struct WriterCounters {
    std::uint64_t resizes = 0;
    std::uint64_t mappedSize = 0;
};

} // namespace VeskCore::Bucket
