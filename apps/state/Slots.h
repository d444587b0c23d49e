#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace State {

inline constexpr std::uint32_t kNoSlot = 0xffffffff;

/// Nodes with numbers that stay as long as they live, found by hash. Nodes never move; the place of
/// a removed one is taken by the next that is added. Memory is that of the most nodes there were.
template <class Node>
class Slots {
  public:
    [[nodiscard]] std::uint32_t size() const noexcept { return size_; }
    [[nodiscard]] Node& operator[](std::uint32_t slot) { return entry(slot).node; }

    /// The first node of that hash that `is(node)`, or kNoSlot.
    template <class Is>
    [[nodiscard]] std::uint32_t find(std::uint32_t hash, Is is) {
        if (heads_.empty()) return kNoSlot;
        std::uint32_t slot = headOf(hash);
        while (slot != kNoSlot) {
            Entry& each = entry(slot);
            if (each.hash == hash && is(each.node)) break;
            slot = each.next;
        }
        return slot;
    }

    /// Calls `visit(slot, node)` for every node of that hash. It must add and remove none.
    template <class Visit>
    void forEach(std::uint32_t hash, Visit visit) {
        if (heads_.empty()) return;
        for (std::uint32_t slot = headOf(hash); slot != kNoSlot; slot = entry(slot).next) {
            if (entry(slot).hash == hash) visit(slot, entry(slot).node);
        }
    }

    /// The slot of a new node, as its default constructor makes it.
    [[nodiscard]] std::uint32_t add(std::uint32_t hash) {
        if (size_ == heads_.size()) grow();
        std::uint32_t slot = free_;
        if (slot == kNoSlot) {
            if (made_ == blocks_.size() * kBlock) {
                blocks_.push_back(std::make_unique<Entry[]>(kBlock));
            }
            slot = made_++;
        } else {
            free_ = entry(slot).next;
            entry(slot).node = Node();
        }
        entry(slot).hash = hash;
        link(slot);
        ++size_;
        return slot;
    }

    void remove(std::uint32_t slot) {
        std::uint32_t* at = &headOf(entry(slot).hash);
        while (*at != slot) {
            at = &entry(*at).next;
        }
        *at = entry(slot).next;
        entry(slot).next = free_;
        free_ = slot;
        --size_;
    }

  private:
    struct Entry {
        Node node;
        std::uint32_t hash = 0;
        std::uint32_t next = kNoSlot; // in the chain, or of the free ones
    };

    static constexpr std::uint32_t kBlock = 256;

    [[nodiscard]] Entry& entry(std::uint32_t slot) { return blocks_[slot / kBlock][slot % kBlock]; }
    [[nodiscard]] std::uint32_t& headOf(std::uint32_t hash) {
        return heads_[hash & (heads_.size() - 1)]; // a power of two
    }
    void link(std::uint32_t slot) {
        std::uint32_t& head = headOf(entry(slot).hash);
        entry(slot).next = head;
        head = slot;
    }
    /// Chains have one node on average, at most. As many nodes as heads are the most there ever
    /// were, so none of the slots is free.
    void grow() {
        constexpr std::size_t kFewest = 64;
        heads_.assign(heads_.empty() ? kFewest : 2 * heads_.size(), kNoSlot);
        for (std::uint32_t slot = 0; slot < made_; ++slot) {
            link(slot);
        }
    }

    std::vector<std::unique_ptr<Entry[]>> blocks_;
    std::vector<std::uint32_t> heads_;
    std::uint32_t made_ = 0; // slots ever used
    std::uint32_t free_ = kNoSlot;
    std::uint32_t size_ = 0;
};

} // namespace State
