#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <utility>

/// Gives the entries of a history their numbers, which count up from 1 for each object, and tells
/// which entry goes when there is room for no more: the oldest one, whichever object it is of.
///
/// An object of which no entry is left is forgotten. Memory follows the number of entries.
template <class Id>
class EntryNumbers {
  public:
    /// `limit`: entries of all objects.
    explicit EntryNumbers(std::size_t limit)
        : limit_(limit) {}

    /// Takes in an entry that is there already; in the order of their ages, and of one object also
    /// in that of their numbers.
    void resume(const Id& id, std::uint32_t number) {
        const auto [object, isNew] = objects_.try_emplace(id, Span{number, number, 0});
        Span& span = object->second;
        span.next = number + 1;
        ++span.entries;
        ages_.push_back(&*object);
    }

    /// The number of a new entry. When it is one too many, `drop(id, number)` is called for each
    /// number that the oldest entry may have.
    template <class Drop>
    std::uint32_t next(const Id& id, Drop&& drop) {
        while (ages_.size() >= limit_ && !ages_.empty()) {
            dropOldest(drop);
        }
        const auto [object, isNew] = objects_.try_emplace(id, Span{1, 1, 0});
        Span& span = object->second;
        ++span.entries;
        ages_.push_back(&*object);
        return span.next++;
    }

    std::size_t entries() const { return ages_.size(); }
    std::size_t objects() const { return objects_.size(); }

  private:
    struct Span {
        std::uint32_t first; ///< the lowest number that is left
        std::uint32_t next;
        std::uint32_t entries; ///< fewer than numbers when some were missing from the start
    };
    struct HashOf {
        std::size_t operator()(const Id& id) const {
            if constexpr (requires { id.hash(0U); }) {
                return id.hash(0);
            } else {
                return id.hash();
            }
        }
    };
    using Objects = std::unordered_map<Id, Span, HashOf>;

    template <class Drop>
    void dropOldest(Drop& drop) {
        typename Objects::value_type& object = *ages_.front();
        ages_.pop_front();
        Span& span = object.second;
        // With gaps in the numbers an entry may be dropped early, but none stays for ever.
        const std::uint32_t last = --span.entries == 0 ? span.next : span.first + 1;
        for (; span.first != last; ++span.first) {
            drop(object.first, span.first);
        }
        if (span.entries == 0) objects_.erase(objects_.find(Id(object.first)));
    }

    std::size_t limit_;
    Objects objects_;
    std::deque<typename Objects::value_type*> ages_; ///< one for each entry, the oldest first
};
