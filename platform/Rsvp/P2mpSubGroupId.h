#pragma once

#include "Mox/Strep.h"
#include "Orv/HashMix.h"
#include "Wirra/IpGenAddr.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Rsvp {

/// Identifies a sub-group of a point-to-multipoint LSP (RFC 4875, section 4.1.3): the router that
/// originated the sub-group and its number there. Stored bytewise in files:
///
///     offset  size  field
///          0    17  originator
///         17     1  padding, zero
///         18     2  subGroup
class P2mpSubGroupId {
  public:
    constexpr P2mpSubGroupId(const Wirra::IpGenAddr& originator, std::uint16_t subGroup)
        : originator_(originator)
        , subGroup_(subGroup) {}
    explicit P2mpSubGroupId(Mox::CharRange& range);

    constexpr const Wirra::IpGenAddr& originator() const { return originator_; }
    constexpr std::uint16_t subGroup() const { return subGroup_; }

    /// Part of key hashes, hence of the file format: with w0 and w1 the address bytes and t the
    /// family plus 65536 times the number, fold(fold(w0 ^ A ^ seed, w1 ^ B), t ^ E), both halves
    /// combined by exclusive or; fold is `Orv::foldedMultiply`.
    std::uint32_t hash(std::uint32_t seed) const {
        std::uint64_t w0 = 0;
        std::uint64_t w1 = 0;
        std::memcpy(&w0, originator_.bytes().data(), 8);
        std::memcpy(&w1, originator_.bytes().data() + 8, 8);
        const std::uint64_t tail =
            static_cast<std::uint64_t>(subGroup_) << 16U | originator_.family();
        const std::uint64_t address =
            Orv::foldedMultiply(w0 ^ 0x2D358DCCAA6C78A5U ^ seed, w1 ^ 0x8BB84B93962EACC9U);
        const std::uint64_t all = Orv::foldedMultiply(address, tail ^ 0xA0761D6478BD642FU);
        return static_cast<std::uint32_t>(all ^ all >> 32U);
    }

    /// "10.0.0.1/7"
    Mox::String stringValue() const;

    friend constexpr bool operator==(const P2mpSubGroupId& left, const P2mpSubGroupId& right) {
        return left.subGroup_ == right.subGroup_ && left.originator_ == right.originator_;
    }
    friend constexpr std::strong_ordering operator<=>(const P2mpSubGroupId& left,
                                                      const P2mpSubGroupId& right) {
        if (const auto order = left.originator_ <=> right.originator_; order != 0) return order;
        return left.subGroup_ <=> right.subGroup_;
    }

  private:
    static void layout() {
        static_assert(offsetof(P2mpSubGroupId, originator_) == 0);
        static_assert(offsetof(P2mpSubGroupId, pad_) == 17);
        static_assert(offsetof(P2mpSubGroupId, subGroup_) == 18);
    }

    Wirra::IpGenAddr originator_;
    [[maybe_unused]] std::uint8_t pad_ = 0;
    std::uint16_t subGroup_ = 0;
};

static_assert(sizeof(P2mpSubGroupId) == 20 && alignof(P2mpSubGroupId) == 2);
static_assert(std::is_trivially_copyable_v<P2mpSubGroupId>);
static_assert(std::has_unique_object_representations_v<P2mpSubGroupId>);

Mox::String valueToStrep(const P2mpSubGroupId& subGroupId);

using Mox::operator<<;
using Mox::valueToStrep;

} // namespace Rsvp
