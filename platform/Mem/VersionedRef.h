#pragma once

#include "Mem/SharedWords.h"

#include <fmt/format.h>

#include <bit>
#include <cstdint>

namespace Mem {

/// A value and the version of its last change, in one 64-bit word of shared memory: the version in
/// the low half. Both are written by one store, so nobody sees one without the other.
template <class T>
struct VersionedRef;

template <>
struct VersionedRef<std::uint32_t> {
    /// Readers use this version for "nothing seen yet"; a writer never stores it.
    static constexpr std::uint32_t kNoVersion = 0xFFFFFFFFU;

    std::uint32_t version = 0;
    std::uint32_t value = 0;

    static VersionedRef loadFrom(const std::uint64_t& word) { return fromWord(load(word)); }

    void publishTo(StopPoint point, std::uint64_t& word) const { publish(point, word, toWord()); }

    /// The successor with another value; its version is never `kNoVersion`.
    VersionedRef next(std::uint32_t newValue) const {
        const std::uint32_t following = version + 1;
        return {following == kNoVersion ? 0 : following, newValue};
    }

    std::uint64_t toWord() const { return static_cast<std::uint64_t>(value) << 32U | version; }

    static VersionedRef fromWord(std::uint64_t word) {
        return {static_cast<std::uint32_t>(word), static_cast<std::uint32_t>(word >> 32U)};
    }

    friend bool operator==(const VersionedRef&, const VersionedRef&) = default;
};

static_assert(std::endian::native == std::endian::little,
              "the files are little-endian and are written by whole words");

} // namespace Mem

template <>
struct fmt::formatter<Mem::VersionedRef<std::uint32_t>> {
    static constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }
    static auto format(const Mem::VersionedRef<std::uint32_t>& ref, fmt::format_context& context) {
        return fmt::format_to(context.out(), "{{{}, {}}}", ref.version, ref.value);
    }
};
