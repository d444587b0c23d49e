#pragma once

// A reader of a table's bytes that knows the layout and nothing of the engine: offsets and widths,
// no class of the library. It stands for a process that looks at the files at any moment, between
// any two stores of a writer that may be dead.

#include <cstddef>
#include <cstdint>
#include <functional>
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
        std::uint32_t slot;
        std::uint32_t bucket; ///< whose chain led to it
        std::uint32_t rhash;
        const std::byte* value;

        std::uint32_t hash() const;
    };
    using Visit = std::function<void(const Entry&)>;

    std::uint32_t numSlots() const { return word(slots_, 580); }
    std::uint32_t numBuckets() const { return word(buckets_, 20); }
    bool critical() const { return (word(slots_, 548) >> 16U & 1U) != 0; }

    /// Walks every chain as a reader does that takes the table to have `count` buckets, a power of
    /// two that is not above the published number. The result is empty, or says what such a reader
    /// cannot accept: a count beyond the file, a link out of range, a slot that is not occupied,
    /// hashes that do not ascend, an entry far from its bucket, a chain without end.
    std::string walk(std::uint32_t count, const Visit& visit) const;
    std::size_t longestChain() const;

    /// Every link word of a file, in use or not.
    std::vector<std::uint64_t> slotLinks() const;
    std::vector<std::uint64_t> bucketLinks() const;

    std::uint32_t nextOfSlot(std::size_t i) const { return word(slots_, slotAt(i) + 4); }
    std::uint32_t nextOfBucket(std::size_t i) const { return word(buckets_, 28 + 8 * i); }

  private:
    static std::uint32_t word(Bytes bytes, std::size_t offset);
    std::size_t slotAt(std::size_t i) const { return 600 + (i + 1) * slotSize_; }
    std::string walkChain(std::uint32_t bucket, std::uint32_t count, const Visit& visit) const;

    Bytes slots_;
    Bytes buckets_;
    std::size_t slotSize_;
};

} // namespace EngineTest
