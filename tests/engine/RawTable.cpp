#include "RawTable.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace EngineTest {

namespace {

constexpr std::uint32_t kEnd = 0xFFFFFFFFU;
constexpr std::uint32_t kBucketBit = 0x80000000U;

/// The 64-bit words at `from` and every `step` bytes after it.
std::vector<std::uint64_t> linksOf(Bytes bytes, std::size_t from, std::size_t step) {
    std::vector<std::uint64_t> links;
    for (std::size_t at = from; at + step <= bytes.size(); at += step) {
        std::memcpy(&links.emplace_back(), bytes.data() + at, 8);
    }
    return links;
}

} // namespace

std::uint32_t RawTable::word(Bytes bytes, std::size_t offset) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.subspan(offset, sizeof value).data(), sizeof value);
    return value;
}

std::vector<std::uint64_t> RawTable::slotLinks() const {
    return linksOf(slots_, slotAt(0), slotSize_);
}
std::vector<std::uint64_t> RawTable::bucketLinks() const { return linksOf(buckets_, 24, 8); }

std::uint32_t RawTable::Entry::hash() const {
    std::uint32_t reversed = 0;
    for (unsigned bit = 0; bit < 32; ++bit) {
        reversed |= (rhash >> bit & 1U) << (31U - bit);
    }
    return reversed;
}

std::string RawTable::walk(std::uint32_t count, const Visit& visit) const {
    if (slotAt(numSlots()) > slots_.size()) return fmt::format("{} slots", numSlots());
    if (24 + 8 * std::size_t{numBuckets()} > buckets_.size()) {
        return fmt::format("{} buckets", numBuckets());
    }
    for (std::uint32_t bucket = 0; bucket < count; ++bucket) {
        if (std::string problem = walkChain(bucket, count, visit); !problem.empty()) {
            return fmt::format("bucket {} of {}: {}", bucket, count, problem);
        }
    }
    return {};
}

std::string RawTable::walkChain(std::uint32_t bucket, std::uint32_t count,
                                const Visit& visit) const {
    // While a resize is under way a chain may run through the entries of the bucket that is split
    // off or joined, but never further.
    const std::uint32_t half = std::max(1U, count / 2);
    std::uint32_t last = 0;
    std::size_t steps = 0;
    for (std::uint32_t next = nextOfBucket(bucket); next != kEnd;) {
        if (++steps > numSlots() + numBuckets()) return "no end";
        if ((next & kBucketBit) != 0) {
            const std::uint32_t following = next & ~kBucketBit;
            if (following >= numBuckets()) return fmt::format("bucket {} follows", following);
            // A bucket of the larger table whose entries belong here for this reader.
            if (following % count != bucket) return {};
            next = nextOfBucket(following);
            continue;
        }
        if (next >= numSlots()) return fmt::format("slot {} of {}", next, numSlots());
        const std::uint32_t sequence = word(slots_, slotAt(next) + 8);
        if ((sequence & 1U) == 0) return fmt::format("slot {} is not occupied", next);
        const Bytes image = slots_.subspan((sequence & 2U) != 0 ? 600 : slotAt(next), slotSize_);
        const Entry entry{next, bucket, word(image, 12), image.data() + 16};
        if (entry.rhash < last) return fmt::format("slot {} does not ascend", next);
        if (entry.hash() % half != bucket % half) return fmt::format("slot {} is astray", next);
        last = entry.rhash;
        visit(entry);
        next = nextOfSlot(next);
    }
    return {};
}

std::size_t RawTable::longestChain() const {
    std::vector<std::size_t> lengths(numBuckets());
    walk(numBuckets(), [&](const Entry& entry) { ++lengths[entry.bucket]; });
    return *std::max_element(lengths.begin(), lengths.end());
}

} // namespace EngineTest
