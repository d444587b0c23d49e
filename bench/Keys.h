#pragma once

#include "Tables.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace Bench {

/// Distinct keys of a shape for distinct numbers, made with little work: what a loop does beside
/// its lookup also keeps the processor from starting the next one early.
template <class Shape>
struct Keys {
    static typename Shape::Key of(std::uint32_t number) { return Shape::key(number); }
};

/// Many entries for each of a few paths, every third of which has a sub-group.
template <>
struct Keys<TestSupport::SpShape> {
    using Key = TestSupport::SpShape::Key;

    static Key of(std::uint32_t number) {
        constexpr std::uint32_t kPaths = 48;
        static const auto paths = [] {
            std::array<Key, kPaths> keys;
            for (std::uint32_t i = 0; i < kPaths; ++i) {
                keys[i] = TestSupport::SpShape::key(4 * i);
            }
            return keys;
        }();
        Key key;
        const Key& path = paths[number % kPaths];
        std::memcpy(static_cast<void*>(&key), static_cast<const void*>(&path), sizeof key);
        key.entryId = number;
        return key;
    }
};

} // namespace Bench
