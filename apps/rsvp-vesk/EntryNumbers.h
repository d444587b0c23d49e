#pragma once

#include <algorithm>
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

    /// Takes in an entry that is there already; in the order of their ages.
    void resume(const Id& id, std::uint32_t number) {
        typename Objects::value_type& object = *objects_.try_emplace(id).first;
        object.second.last = std::max(object.second.last, number);
        append(object, number);
    }

    /// The number of a new entry. When that is one too many, `drop(id, number)` is called for the
    /// oldest.
    template <class Drop>
    std::uint32_t next(const Id& id, Drop&& drop) {
        while (ages_.size() >= limit_ && !ages_.empty()) {
            const auto [object, number] = ages_.front();
            ages_.pop_front();
            drop(object->first, number);
            if (--object->second.entries == 0) objects_.erase(objects_.find(Id(object->first)));
        }
        typename Objects::value_type& object = *objects_.try_emplace(id).first;
        append(object, ++object.second.last);
        return object.second.last;
    }

    std::size_t entries() const { return ages_.size(); }
    std::size_t objects() const { return objects_.size(); }

  private:
    struct Numbers {
        std::uint32_t last = 0;
        std::uint32_t entries = 0;
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
    using Objects = std::unordered_map<Id, Numbers, HashOf>;

    void append(typename Objects::value_type& object, std::uint32_t number) {
        ++object.second.entries;
        ages_.emplace_back(&object, number);
    }

    std::size_t limit_;
    Objects objects_;
    /// Every entry, the oldest first.
    std::deque<std::pair<typename Objects::value_type*, std::uint32_t>> ages_;
};
