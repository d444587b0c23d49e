#pragma once

// The two sides of every comparison, with the same operations: a table behind its public interface
// and absl::flat_hash_set of the same bytes. Both take the same keys and the same key hash.

#include "Writers.h"

#include <absl/container/flat_hash_set.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace Bench {

/// Adds 1 to a counter that the value keeps apart from its key.
inline void increment(Rsvp::Vesk::MessageCounter& value) { value.countInc(1); }
inline void increment(TestSupport::SpStandIn& value) { ++value.payload[0]; }

/// Stores the key, which begins every value, as a caller does who composes the value himself: what
/// follows need not wait for the bytes that were looked up.
template <class Value, class Key>
void keyIs(Value& value, const Key& key) {
    std::memcpy(static_cast<void*>(&value), static_cast<const void*>(&key), sizeof key);
}

/// What a writer and a reader of a table have in common.
template <class Shape>
class ReadingSide {
  public:
    using Key = typename Shape::Key;
    using Value = typename Shape::Ops::Value;

    explicit ReadingSide(std::unique_ptr<Table<typename Shape::Ops>> table)
        : table_(std::move(table)) {}

    bool lookup(const Key& key, Value& out) const {
        bool found = false;
        const Value* const stored = table_->lookup(key, found, nullptr);
        if (!found) return false;
        std::memcpy(static_cast<void*>(&out), static_cast<const void*>(stored), sizeof out);
        return true;
    }
    template <class Visit>
    void iterate(Visit visit) const {
        Value value;
        Vesk::IterHint hint;
        for (bool more = table_->first(value, hint); more;
             more = table_->next(Shape::Ops::key(value), value, hint)) {
            visit(value);
        }
    }
    std::uint32_t size() const { return table_->members(); }

    Table<typename Shape::Ops>& table() const { return *table_; }

  private:
    std::unique_ptr<Table<typename Shape::Ops>> table_;
};

template <class Shape>
class TableSide : public ReadingSide<Shape> {
  public:
    using Key = typename Shape::Key;
    using Value = typename Shape::Ops::Value;

    TableSide(const std::string& name, std::uint32_t entries)
        : TableSide(name, Vesk::MapDescriptor(entries, Vesk::VeskType::writer)) {}
    TableSide(const std::string& name, const Vesk::MapDescriptor& descriptor)
        : ReadingSide<Shape>(openTable<typename Shape::Ops>(name, descriptor)) {}
    /// The files go with the object: a run makes many growing tables.
    ~TableSide() { this->table().cleanup(); }
    TableSide(const TableSide&) = delete;
    TableSide& operator=(const TableSide&) = delete;

    bool count(const Key& key) {
        Value value;
        if (!this->lookup(key, value)) return false;
        keyIs(value, key);
        increment(value);
        this->table().write(value, true);
        return true;
    }
    void insert(const Value& value) { this->table().write(value, true); }
    bool remove(const Key& key) {
        Value out;
        return this->table().remove(key, out);
    }
};

/// A reader copies a value once, into the caller's buffer.
template <class Shape>
class ReaderSide : public ReadingSide<Shape> {
  public:
    explicit ReaderSide(const std::string& name)
        : ReadingSide<Shape>(openReader<typename Shape::Ops>(name)) {}

    bool lookup(const typename Shape::Key& key, typename Shape::Ops::Value& out) const {
        bool found = false;
        this->table().lookup(key, found, &out);
        return found;
    }
};

template <class Shape>
class AbslSide {
  public:
    using Key = typename Shape::Key;
    using Value = typename Shape::Ops::Value;

    /// With room for `entries` from the start, or for none.
    AbslSide(const std::string& /*name*/, std::uint32_t entries) { set_.reserve(entries); }

    bool lookup(const Key& key, Value& out) const {
        const auto found = set_.find(key);
        if (found == set_.end()) return false;
        found->copyTo(out);
        return true;
    }
    bool count(const Key& key) {
        const auto found = set_.find(key);
        if (found == set_.end()) return false;
        Value value;
        found->copyTo(value);
        keyIs(value, key);
        increment(value);
        // The key stays, so the element's place does.
        const_cast<Image&>(*found) = Image(value);
        return true;
    }
    void insert(const Value& value) { set_.insert(Image(value)); }
    bool remove(const Key& key) { return set_.erase(key) == 1; }
    template <class Visit>
    void iterate(Visit visit) const {
        Value value;
        for (const Image& image : set_) {
            image.copyTo(value);
            visit(value);
        }
    }
    std::uint32_t size() const { return static_cast<std::uint32_t>(set_.size()); }

  private:
    /// Any seed does; that of a table is random as well.
    static constexpr std::uint32_t kSeed = 0x6B8B4567U;

    /// The bytes of a value. Identifiers inside a key have copy constructors that branch, which
    /// would slow this side down and not the table, which copies bytes.
    struct Image {
        alignas(8) std::array<std::byte, sizeof(Value)> bytes;

        explicit Image(const Value& value) { std::memcpy(bytes.data(), &value, sizeof value); }
        const Key& key() const {
            return Shape::Ops::key(*reinterpret_cast<const Value*>(bytes.data()));
        }
        void copyTo(Value& out) const {
            std::memcpy(static_cast<void*>(&out), bytes.data(), bytes.size());
        }
    };

    /// The table's key hash, spread over the 64 bits that this kind of set takes its group and its
    /// control byte from.
    struct Hash {
        using is_transparent = void;

        std::uint32_t seed = kSeed;

        std::size_t operator()(const Key& key) const {
            const std::uint64_t spread = Shape::Ops::hash(key, seed) * 0x9E3779B97F4A7C15U;
            return spread ^ spread >> 32U;
        }
        std::size_t operator()(const Image& image) const { return (*this)(image.key()); }
    };
    struct Equal {
        using is_transparent = void;

        bool operator()(const Image& image, const Key& key) const {
            return Shape::Ops::equal(image.key(), key);
        }
        bool operator()(const Image& a, const Image& b) const {
            return Shape::Ops::equal(a.key(), b.key());
        }
    };

    absl::flat_hash_set<Image, Hash, Equal> set_;
};

} // namespace Bench
