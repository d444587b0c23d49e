#pragma once

// A reader of a table's bytes that knows the layout and nothing of the engine: offsets and widths,
// no class of the library. It stands for a process that looks at the files at any moment, between
// any two stores of a writer that may be dead.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

namespace EngineTest {

using Bytes = std::span<const std::byte>;

class RawTable {
  public:
    /// The files, or the ranges that they are mapped to.
    RawTable(Bytes slots, Bytes buckets, std::size_t valueSize)
        : slots_(slots)
        , buckets_(buckets)
        , slotSize_(16 + valueSize) {}

    struct Entry {
        std::uint32_t bucket; ///< whose chain led to it
        std::uint32_t rhash;
        const std::byte* value;

        std::uint32_t hash() const {
            std::uint32_t reversed = 0;
            for (unsigned bit = 0; bit < 32; ++bit) {
                reversed |= (rhash >> bit & 1U) << (31U - bit);
            }
            return reversed;
        }
    };

    std::uint32_t numSlots() const { return word(slots_, 580); }
    std::uint32_t numBuckets() const { return word(buckets_, 20); }
    std::uint32_t hashSeed() const { return word(slots_, 568); }
    bool critical() const { return (word(slots_, 548) >> 16U & 1U) != 0; }
    std::uint32_t nextOfSlot(std::size_t i) const { return word(slots_, slotAt(i) + 4); }
    std::uint32_t nextOfBucket(std::size_t i) const { return word(buckets_, 28 + 8 * i); }
    /// Where a slot begins in the slot file.
    std::size_t slotAt(std::size_t i) const { return 600 + (i + 1) * slotSize_; }

    /// The slots from a sound link to the end of its chain.
    std::vector<std::uint32_t> chainFrom(std::uint32_t next) const {
        std::vector<std::uint32_t> chain;
        for (; next < kBucketBit; next = nextOfSlot(next)) {
            chain.push_back(next);
        }
        return chain;
    }

    /// Every link word of the slots and of the buckets, in use or not.
    std::array<std::vector<std::uint64_t>, 2> links() const {
        return {links(slots_, slotAt(0), slotSize_), links(buckets_, 24, 8)};
    }

    /// Walks every chain as a reader does that takes the table to have `count` buckets, a power of
    /// two that is not above the published number. The result is empty, or says what such a reader
    /// cannot accept.
    template <class Visit>
    std::string walk(std::uint32_t count, Visit visit) const {
        if (slotAt(numSlots()) > slots_.size()) return "more slots than the file has";
        if (24 + 8 * std::size_t{numBuckets()} > buckets_.size()) {
            return "more buckets than the file has";
        }
        for (std::uint32_t bucket = 0; bucket < count; ++bucket) {
            if (const char* const problem = walkChain(bucket, count, visit)) return problem;
        }
        return {};
    }

  private:
    static constexpr std::uint32_t kEnd = 0xFFFFFFFFU;
    static constexpr std::uint32_t kBucketBit = 0x80000000U;

    static std::uint32_t word(Bytes bytes, std::size_t offset) {
        std::uint32_t value = 0;
        std::memcpy(&value, bytes.subspan(offset, sizeof value).data(), sizeof value);
        return value;
    }
    static std::vector<std::uint64_t> links(Bytes bytes, std::size_t from, std::size_t step) {
        std::vector<std::uint64_t> result;
        for (std::size_t at = from; at + step <= bytes.size(); at += step) {
            std::memcpy(&result.emplace_back(), bytes.data() + at, 8);
        }
        return result;
    }

    template <class Visit>
    const char* walkChain(std::uint32_t bucket, std::uint32_t count, Visit& visit) const {
        // While a resize is under way a chain may run through the entries of the bucket that is
        // split off or joined, but never further.
        const std::uint32_t half = std::max(1U, count / 2);
        std::uint32_t last = 0;
        std::size_t steps = 0;
        for (std::uint32_t next = nextOfBucket(bucket); next != kEnd;) {
            if (++steps > numSlots() + numBuckets()) return "a chain without end";
            if ((next & kBucketBit) != 0) {
                const std::uint32_t following = next & ~kBucketBit;
                if (following >= numBuckets()) return "a bucket out of range";
                // A bucket of the larger table whose entries belong here for this reader.
                if (following % count != bucket) return nullptr;
                next = nextOfBucket(following);
                continue;
            }
            if (next >= numSlots()) return "a slot out of range";
            const std::uint32_t sequence = word(slots_, slotAt(next) + 8);
            if ((sequence & 1U) == 0) return "a slot that is not occupied";
            const Bytes image =
                slots_.subspan((sequence & 2U) != 0 ? 600 : slotAt(next), slotSize_);
            const Entry entry{bucket, word(image, 12), image.data() + 16};
            if (entry.rhash < last) return "hashes that do not ascend";
            if (entry.hash() % half != bucket % half) return "an entry far from its bucket";
            last = entry.rhash;
            visit(entry);
            next = nextOfSlot(next);
        }
        return nullptr;
    }

    Bytes slots_;
    Bytes buckets_;
    std::size_t slotSize_;
};

} // namespace EngineTest
