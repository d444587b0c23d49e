#pragma once

// What the memory itself takes for the work of a table: the ground that iteration and the check of
// an opened table are compared with.

#include "Mem/SharedWords.h"
#include "Vesk/SlotTable.h"
#include "VeskCore/BucketWriter.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace Bench {

/// A file mapped shared; the mapping goes with the object.
class MappedFile {
  public:
    /// An existing file, read-only.
    explicit MappedFile(const std::string& path);
    /// A new file of zeros, writable.
    MappedFile(const std::string& path, std::size_t size);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    std::byte* base() const { return base_; }
    std::size_t size() const { return size_; }

  private:
    void map(int fd, int protection);

    std::byte* base_ = nullptr;
    std::size_t size_ = 0;
};

/// As many slots as a table has, in one random cycle: each slot's link names the next. Following it
/// with a copy of every value is the least that an ordered iteration can do.
template <std::size_t ValueSize>
class SlotCycle {
  public:
    SlotCycle(const std::string& path, std::uint32_t slots)
        : file_(path, std::size_t{slots} * kStride) {
        std::vector<std::uint32_t> order(slots);
        for (std::uint32_t i = 0; i < slots; ++i) {
            order[i] = i;
        }
        // Sattolo's shuffle gives a permutation of a single cycle.
        std::mt19937 random(1);
        for (std::uint32_t i = slots - 1; i > 0; --i) {
            std::swap(order[i], order[random() % i]);
        }
        for (std::uint32_t i = 0; i < slots; ++i) {
            link(i) = order[i];
        }
    }

    /// Copies the value of a slot and returns the slot that follows.
    std::uint32_t step(std::uint32_t slot, void* value) const {
        const std::byte* const from = file_.base() + std::size_t{slot} * kStride;
        Mem::copyOut<ValueSize>(value, from + sizeof(Vesk::SlotWords));
        return Mem::load(*reinterpret_cast<const std::uint32_t*>(from));
    }

  private:
    static constexpr std::size_t kStride = sizeof(Vesk::SlotWords) + ValueSize;

    std::uint32_t& link(std::uint32_t slot) {
        return *reinterpret_cast<std::uint32_t*>(file_.base() + std::size_t{slot} * kStride);
    }

    MappedFile file_;
};

/// The files of a table that nobody writes at the time.
template <class Ops>
class PlainTable {
  public:
    explicit PlainTable(const std::string& folder)
        : slotFile_(folder + "/slots")
        , bucketFile_(folder + "/buckets")
        , capacity_(static_cast<std::uint32_t>((slotFile_.size() - Layout::kHeaderSize) /
                                               Layout::kSlotSize))
        , buckets_(reinterpret_cast<const Vesk::SlotLink*>(bucketFile_.base() + kBucketHeader),
                   (bucketFile_.size() - kBucketHeader) / sizeof(Vesk::SlotLink)) {}

    /// Goes through the table in the cheapest order: the slots as they lie, hashing every key, then
    /// every bucket's chain, for the links. Returns the number of entries; throws
    /// `std::runtime_error` when a link and a hash disagree.
    std::uint32_t walk(std::uint32_t seed) const {
        constexpr std::uint32_t kNone = 0xFFFFFFFFU;
        const auto mask = static_cast<std::uint32_t>(buckets_.size()) - 1;
        std::vector<std::uint32_t> bucketOf(capacity_, kNone);
        std::uint32_t entries = 0;
        typename Ops::Value value;
        for (std::uint32_t i = 0; i < capacity_; ++i) {
            const Vesk::SlotWords& slot = slotAt(i);
            if (!slot.occupied()) continue;
            Ops::Marshall::fromSlot(value, slot.value());
            bucketOf[i] = Ops::hash(Ops::key(value), seed) & mask;
            ++entries;
        }
        std::uint32_t reached = 0;
        for (std::uint32_t b = 0; b <= mask; ++b) {
            for (std::uint32_t i = buckets_[b].next(); !Vesk::SlotLink::leavesChain(i);
                 i = slotAt(i).link.next()) {
                if (i >= capacity_ || bucketOf[i] != b) {
                    throw std::runtime_error("slot in wrong chain");
                }
                bucketOf[i] = kNone; // each is reached once
                ++reached;
            }
        }
        if (reached != entries) throw std::runtime_error("slots without a chain");
        return entries;
    }

  private:
    using Layout = Vesk::SlotTable<Ops>;
    static constexpr std::size_t kBucketHeader = VeskCore::BucketTable::Header::kSize;

    const Vesk::SlotWords& slotAt(std::uint32_t index) const {
        return *reinterpret_cast<const Vesk::SlotWords*>(slotFile_.base() + Layout::kHeaderSize +
                                                         std::size_t{index} * Layout::kSlotSize);
    }

    MappedFile slotFile_;
    MappedFile bucketFile_;
    std::uint32_t capacity_;
    std::span<const Vesk::SlotLink> buckets_;
};

} // namespace Bench
