#pragma once

// What the engine's tests share: a fifth shape whose keys collide, the model of a table, and the
// comparison of a table with its model, through the writer or over the raw bytes.

#include "Environment.h"
#include "RawTable.h"
#include "Tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace EngineTest {

/// Three keys each have all 32 bits of their hash in common: their order is that of the keys.
struct CrowdedKey {
    std::uint32_t number = 0;
    std::uint32_t pad = 0;

    std::uint32_t hash(std::uint32_t seed) const { return TestSupport::mixed(number / 3, seed, 1); }
    friend bool operator==(const CrowdedKey&, const CrowdedKey&) = default;
    friend bool operator<(const CrowdedKey& a, const CrowdedKey& b) { return a.number < b.number; }
};

struct CrowdedValue {
    CrowdedKey theKey;
    std::uint32_t count = 0;
    std::uint32_t check = 0;

    const CrowdedKey& key() const { return theKey; }
};

struct CrowdedShape {
    using V = CrowdedValue;
    using Key = CrowdedKey;
    using Ops = MoxVesk::TableOps<V, Key, true>;
    static constexpr const char* name = "Crowded";
    static constexpr std::uint32_t minimumCapacity = 64;
    static constexpr std::uint32_t keys = 0xFFFFFFFFU;

    static Key key(std::uint32_t number) { return {number, 0}; }
    static V value(std::uint32_t number, std::uint32_t generation) {
        return {key(number), generation, TestSupport::mixed(number, generation, 2)};
    }
    static std::uint32_t generation(const V& value) { return value.count; }
    static bool whole(const V& value) {
        return value.check == TestSupport::mixed(value.theKey.number, value.count, 2);
    }
};

using Shapes = testing::Types<TestSupport::ErrorShape, TestSupport::MessageShape,
                              TestSupport::SessionShape, TestSupport::SpShape, CrowdedShape>;

struct ShapeName {
    template <class Shape>
    static std::string GetName(int) {
        return Shape::name;
    }
};

/// The generation of each key that is present.
template <class Shape>
using ModelOf = std::map<typename Shape::Key, std::uint32_t>;
template <class Shape>
using ValueOf = typename Shape::Ops::Value;

/// The keys of a model as iteration gives them: ascending by reversed hash, then by key.
template <class Shape>
std::vector<std::pair<std::uint32_t, typename Shape::Key>> orderOf(const ModelOf<Shape>& model,
                                                                   std::uint32_t seed) {
    std::vector<std::pair<std::uint32_t, typename Shape::Key>> order;
    for (const auto& [key, generation] : model) {
        order.emplace_back(Shape::Ops::rhash(key.hash(seed)), key);
    }
    std::sort(order.begin(), order.end());
    return order;
}

/// All entries by iteration; a failure when they are not whole or not in order.
template <class Shape>
ModelOf<Shape> contentOf(const TestSupport::WriterOf<Shape>& writer) {
    ModelOf<Shape> content;
    std::vector<std::pair<std::uint32_t, typename Shape::Key>> visited;
    ValueOf<Shape> value;
    Vesk::IterHint hint;
    for (bool more = writer.first(value, hint); more;
         more = writer.next(value.key(), value, hint)) {
        EXPECT_TRUE(Shape::whole(value)) << fmt::format("{}", value);
        content[value.key()] = Shape::generation(value);
        visited.emplace_back(Shape::Ops::rhash(value.key().hash(writer.hashSeed())), value.key());
    }
    EXPECT_TRUE(visited == orderOf<Shape>(content, writer.hashSeed())) << "order of iteration";
    return content;
}

template <class Shape>
std::uint32_t slotOf(const TestSupport::WriterOf<Shape>& writer, const typename Shape::Key& key) {
    bool found = false;
    const auto* const at = reinterpret_cast<const std::byte*>(writer.lookup(key, found, nullptr));
    if (!found) return 0xFFFFFFFFU;
    const std::size_t slotSize = 16 + sizeof(typename Shape::V);
    const auto offset = static_cast<std::size_t>(at - writer.slotTable().mapping().base());
    return static_cast<std::uint32_t>((offset - 600 - slotSize) / slotSize);
}

/// Puts a complete value where a direct operation asks for it.
template <class Value>
void compose(Value* at, const Value& value) {
    std::memcpy(static_cast<void*>(at), static_cast<const void*>(&value), sizeof value);
}

/// The first place in an order behind `key`.
template <class Shape, class Order>
auto behind(const Order& order, const typename Shape::Key& key, std::uint32_t seed) {
    return std::upper_bound(order.begin(), order.end(),
                            std::pair(Shape::Ops::rhash(key.hash(seed)), key));
}

inline Vesk::MapDescriptor shrinkingTable() {
    Vesk::MapDescriptor descriptor = TestSupport::growingTable();
    descriptor.shrinkBuckets = true;
    return descriptor;
}

/// The bytes that an attached writer has mapped.
template <class Shape>
RawTable rawTableOf(const TestSupport::WriterOf<Shape>& writer) {
    const Mem::Mapping& slots = writer.slotTable().mapping();
    const auto* const buckets =
        reinterpret_cast<const std::byte*>(&writer.hashMap().buckets().header());
    return RawTable({slots.base(), slots.size()},
                    {buckets, writer.writerCounters().bucketsMappedSize},
                    sizeof(typename Shape::V));
}

/// An operation that is under way: what its key may look like.
template <class Shape>
struct Pending {
    typename Shape::Key key;
    std::optional<std::uint32_t> before; ///< generation, none when absent
    std::optional<std::uint32_t> after;
};

/// What a reader misses that takes the table to have `count` buckets; empty when it finds every
/// entry of the model, whole, sorted, and nothing else. The key of an operation under way may be
/// as before it or as after it.
template <class Shape>
std::string compareRaw(const RawTable& table, std::uint32_t count, const ModelOf<Shape>& model,
                       std::uint32_t seed, const std::optional<Pending<Shape>>& pending) {
    using Key = typename Shape::Key;
    ModelOf<Shape> found;
    std::string problem;
    std::optional<std::pair<std::uint32_t, Key>> last;
    std::uint32_t bucket = 0xFFFFFFFFU;
    const std::string walked = table.walk(count, [&](const RawTable::Entry& entry) {
        ValueOf<Shape> value;
        std::memcpy(static_cast<void*>(&value), entry.value, sizeof value);
        const std::uint32_t hash = value.key().hash(seed);
        if (hash != entry.hash() || !Shape::whole(value)) {
            problem = fmt::format("slot {} holds {}", entry.slot, value);
        }
        const std::pair<std::uint32_t, Key> place{entry.rhash, value.key()};
        if (entry.bucket == bucket && !(*last < place)) problem = "keys do not ascend";
        last = place;
        bucket = entry.bucket;
        if (hash % count == bucket) found[value.key()] = Shape::generation(value);
    });
    if (!walked.empty()) return walked;
    if (!problem.empty()) return problem;
    ModelOf<Shape> wanted = model;
    if (pending) {
        const auto at = found.find(pending->key);
        const auto seen =
            at == found.end() ? std::nullopt : std::optional<std::uint32_t>(at->second);
        if (seen != pending->before && seen != pending->after) return "half an operation";
        wanted.erase(pending->key);
        found.erase(pending->key);
    }
    if (found != wanted) {
        return fmt::format("{} entries found, {} wanted, or another content", found.size(),
                           wanted.size());
    }
    return {};
}

} // namespace EngineTest

template <>
struct fmt::formatter<EngineTest::CrowdedKey> {
    static constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }
    static auto format(const EngineTest::CrowdedKey& key, fmt::format_context& context) {
        return fmt::format_to(context.out(), "key{}", key.number);
    }
};

template <class Value>
requires std::is_base_of_v<EngineTest::CrowdedValue, Value>
struct fmt::formatter<Value> {
    static constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }
    static auto format(const Value& value, fmt::format_context& context) {
        return fmt::format_to(context.out(), "value{}#{}", value.theKey.number, value.count);
    }
};
