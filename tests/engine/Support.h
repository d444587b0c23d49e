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

using TestSupport::openWriter;
using TestSupport::WriterOf;

/// Three keys each have all 32 bits of their hash in common: their order is that of the keys.
struct CrowdedKey {
    std::uint32_t number = 0;
    std::uint32_t pad = 0;

    std::uint32_t hash(std::uint32_t seed) const { return TestSupport::mixed(number / 3, seed, 1); }
    friend auto operator<=>(const CrowdedKey&, const CrowdedKey&) = default;
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

inline Vesk::MapDescriptor shrinkingTable() {
    Vesk::MapDescriptor descriptor = TestSupport::growingTable();
    descriptor.shrinkBuckets = true;
    descriptor.shrinkSlots = true;
    return descriptor;
}

template <class Shape>
using ValueOf = typename Shape::Ops::Value;
/// The generation of each key that is present.
template <class Shape>
using ModelOf = std::map<typename Shape::Key, std::uint32_t>;
/// Where iteration comes to a key: entries ascend by reversed hash, then by key.
template <class Shape>
using PlaceOf = std::pair<std::uint32_t, typename Shape::Key>;

template <class Shape>
PlaceOf<Shape> placeOf(const typename Shape::Key& key, std::uint32_t seed) {
    return {Shape::Ops::rhash(key.hash(seed)), key};
}

/// Puts a complete value where a direct operation asks for it.
template <class Value>
void compose(Value* at, const Value& value) {
    std::memcpy(static_cast<void*>(at), static_cast<const void*>(&value), sizeof value);
}

/// All entries by iteration; a failure when they are not whole or not in order.
template <class Shape>
ModelOf<Shape> contentOf(const WriterOf<Shape>& writer) {
    ModelOf<Shape> content;
    std::vector<PlaceOf<Shape>> places;
    ValueOf<Shape> value;
    Vesk::IterHint hint;
    for (bool more = writer.first(value, hint); more;
         more = writer.next(value.key(), value, hint)) {
        EXPECT_TRUE(Shape::whole(value));
        content[value.key()] = Shape::generation(value);
        places.push_back(placeOf<Shape>(value.key(), writer.hashSeed()));
    }
    EXPECT_TRUE(std::is_sorted(places.begin(), places.end())) << "order of iteration";
    EXPECT_EQ(places.size(), content.size()) << "a key was visited twice";
    return content;
}

/// One step of iteration from any key with any hint, compared with the model.
template <class Shape>
void expectNext(const WriterOf<Shape>& writer, const ModelOf<Shape>& model,
                const typename Shape::Key& key, Vesk::IterHint& hint, ValueOf<Shape>& value) {
    const PlaceOf<Shape> from = placeOf<Shape>(key, writer.hashSeed());
    std::optional<PlaceOf<Shape>> following;
    for (const auto& [each, generation] : model) {
        const PlaceOf<Shape> place = placeOf<Shape>(each, writer.hashSeed());
        if (from < place && (!following || place < *following)) following = place;
    }
    ASSERT_EQ(writer.next(key, value, hint), following.has_value());
    if (!following) return;
    EXPECT_TRUE(value.key() == following->second);
    EXPECT_EQ(Shape::generation(value), model.at(following->second));
}

/// The bytes that an attached writer has mapped.
template <class Shape>
RawTable rawTableOf(const WriterOf<Shape>& writer) {
    const Mem::Mapping& slots = writer.slotTable().mapping();
    const auto* const buckets =
        reinterpret_cast<const std::byte*>(&writer.hashMap().buckets().header());
    return RawTable({slots.base(), slots.size()},
                    {buckets, writer.writerCounters().bucketsMappedSize},
                    sizeof(typename Shape::V));
}

/// An operation that is under way: the generation of its key, none when absent.
template <class Shape>
struct Pending {
    typename Shape::Key key;
    std::optional<std::uint32_t> before;
    std::optional<std::uint32_t> after;
};

/// What readers miss that have adopted the number of buckets before or after the latest resize:
/// empty when they find every entry of the model, whole, sorted, and nothing else. The key of an
/// operation under way may be as before it or as after it.
template <class Shape>
std::string compareRaw(const RawTable& table, const ModelOf<Shape>& model, std::uint32_t seed,
                       const std::optional<Pending<Shape>>& pending = {}) {
    for (const std::uint32_t count : {table.numBuckets(), std::max(1U, table.numBuckets() / 2)}) {
        ModelOf<Shape> found;
        std::string problem;
        PlaceOf<Shape> last{};
        std::uint32_t bucket = count;
        const std::string walked = table.walk(count, [&](const RawTable::Entry& entry) {
            ValueOf<Shape> value;
            std::memcpy(static_cast<void*>(&value), entry.value, sizeof value);
            const auto place = placeOf<Shape>(value.key(), seed);
            if (place.first != entry.rhash || !Shape::whole(value)) problem = "not whole";
            if (entry.bucket == bucket && !(last < place)) problem = "not ascending";
            last = place;
            bucket = entry.bucket;
            if (entry.hash() % count == bucket) found[value.key()] = Shape::generation(value);
        });
        ModelOf<Shape> wanted = model;
        if (pending) {
            const auto at = found.find(pending->key);
            const auto seen =
                at == found.end() ? std::nullopt : std::optional<std::uint32_t>(at->second);
            if (seen != pending->before && seen != pending->after) problem = "half an operation";
            wanted.erase(pending->key);
            found.erase(pending->key);
        }
        if (found != wanted) problem = fmt::format("{} of {}", found.size(), wanted.size());
        if (!walked.empty() || !problem.empty()) {
            return fmt::format("{} of {} buckets: {} {}", count, table.numBuckets(), walked,
                               problem);
        }
    }
    return {};
}

} // namespace EngineTest

template <class T>
requires std::is_same_v<T, EngineTest::CrowdedKey> || std::is_base_of_v<EngineTest::CrowdedValue, T>
struct fmt::formatter<T> {
    static constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }
    static auto format(const T&, fmt::format_context& context) {
        return fmt::format_to(context.out(), "crowded");
    }
};
