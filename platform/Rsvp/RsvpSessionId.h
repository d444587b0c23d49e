#pragma once

#include "Mox/Strep.h"
#include "Orv/HashMix.h"
#include "Wirra/IpGenAddr.h"

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Rsvp {

/// Identifies an RSVP session: the content of a SESSION object. Stored bytewise in files:
///
///     offset  size  field              RFC 3209 tunnel     RFC 4875 P2MP      RFC 2205
///          0     1  sessionType        C-Type 7, 8         13, 14             1, 2
///          1    17  destination        tunnel endpoint     P2MP ID as IPv4    destination
///         18     2  tunnelId           tunnel ID           tunnel ID          port
///         20    17  extendedTunnelId   ext. tunnel ID      ext. tunnel ID     protocol as IPv4
///         37     1  padding, zero
///
/// sessionType 0 is no session. "As IPv4" is an address of that family which holds the number, so
/// that protocol 17 is 0.0.0.17. Equality, order and hash take the 37 bytes of the fields.
class RsvpSessionId {
  public:
    constexpr RsvpSessionId() = default;
    constexpr RsvpSessionId(std::uint8_t sessionType, const Wirra::IpGenAddr& destination,
                            std::uint16_t tunnelId, const Wirra::IpGenAddr& extendedTunnelId)
        : sessionType_(sessionType)
        , destination_(destination)
        , tunnelId_(tunnelId)
        , extendedTunnelId_(extendedTunnelId) {}

    constexpr std::uint8_t sessionType() const { return sessionType_; }
    constexpr const Wirra::IpGenAddr& destination() const { return destination_; }
    constexpr std::uint16_t tunnelId() const { return tunnelId_; }
    constexpr const Wirra::IpGenAddr& extendedTunnelId() const { return extendedTunnelId_; }

    /// Part of key hashes, hence of the file format: with words as in `words()` and the constants
    /// below, fold(fold(w0 ^ A ^ seed, w1 ^ B) ^ fold(w2 ^ C, w3 ^ D), w4 ^ E), both halves
    /// combined by exclusive or; fold is `Orv::foldedMultiply`.
    std::uint32_t hash(std::uint32_t seed) const {
        const Words w = words();
        const std::uint64_t front =
            Orv::foldedMultiply(w[0] ^ 0x2D358DCCAA6C78A5U ^ seed, w[1] ^ 0x8BB84B93962EACC9U);
        const std::uint64_t back =
            Orv::foldedMultiply(w[2] ^ 0x4B33A62ED433D4A3U, w[3] ^ 0x4D5A2DA51DE1AA47U);
        const std::uint64_t all = Orv::foldedMultiply(front ^ back, w[4] ^ 0xA0761D6478BD642FU);
        return static_cast<std::uint32_t>(all ^ all >> 32U);
    }

    /// "type=7 dst=10.0.0.1 tunnel=5 ext=10.0.0.2"
    Mox::String stringValue() const;

    friend bool operator==(const RsvpSessionId& left, const RsvpSessionId& right) {
        const Words l = left.words();
        const Words r = right.words();
        return ((l[0] ^ r[0]) | (l[1] ^ r[1]) | (l[2] ^ r[2]) | (l[3] ^ r[3]) | (l[4] ^ r[4])) == 0;
    }
    /// By type, destination, tunnel and extended tunnel.
    friend constexpr std::strong_ordering operator<=>(const RsvpSessionId& left,
                                                      const RsvpSessionId& right) {
        if (const auto order = left.sessionType_ <=> right.sessionType_; order != 0) return order;
        if (const auto order = left.destination_ <=> right.destination_; order != 0) return order;
        if (const auto order = left.tunnelId_ <=> right.tunnelId_; order != 0) return order;
        return left.extendedTunnelId_ <=> right.extendedTunnelId_;
    }

  private:
    using Words = std::array<std::uint64_t, 5>;

    /// The fields as five words, the last one overlapping its neighbour: bytes 0 to 31 and 29 to
    /// 36. The padding stays outside, so that stray bytes in a file never make equal keys differ.
    Words words() const {
        Words w{};
        const auto* bytes = reinterpret_cast<const std::byte*>(this);
        std::memcpy(w.data(), bytes, 32);
        std::memcpy(&w[4], bytes + 29, 8);
        return w;
    }

    static void layout() {
        static_assert(offsetof(RsvpSessionId, sessionType_) == 0);
        static_assert(offsetof(RsvpSessionId, destination_) == 1);
        static_assert(offsetof(RsvpSessionId, tunnelId_) == 18);
        static_assert(offsetof(RsvpSessionId, extendedTunnelId_) == 20);
        static_assert(offsetof(RsvpSessionId, pad_) == 37);
    }

    std::uint8_t sessionType_ = 0;
    Wirra::IpGenAddr destination_;
    std::uint16_t tunnelId_ = 0;
    Wirra::IpGenAddr extendedTunnelId_;
    [[maybe_unused]] std::uint8_t pad_ = 0;
};

static_assert(sizeof(RsvpSessionId) == 38 && alignof(RsvpSessionId) == 2);
static_assert(std::is_trivially_copyable_v<RsvpSessionId>);
static_assert(std::is_standard_layout_v<RsvpSessionId>);
static_assert(std::has_unique_object_representations_v<RsvpSessionId>);

Mox::String valueToStrep(const RsvpSessionId& sessionId);
RsvpSessionId sequenceToValue(Mox::CharRange& range, RsvpSessionId* selector);

using Mox::operator<<;
using Mox::sequenceToValue;
using Mox::valueToStrep;

} // namespace Rsvp
