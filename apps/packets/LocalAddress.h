#pragma once

#include "packets/Frame.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace Packets {

/// An address of the node whose messages are counted, as the user gave it: an IPv4 or IPv6 address,
/// a MAC address, or the first octets of one.
class LocalAddress {
  public:
    /// Reads an IPv4 address, an IPv6 address, or one to six octets of two hexadecimal digits with
    /// colons between (`02:00:5e:10:00`). Anything else is an InputError that says so.
    explicit LocalAddress(std::string_view text);

    /// Whether the frame came from this address.
    [[nodiscard]] bool matches(const FrameSource& source) const noexcept;

  private:
    enum class Kind : std::uint8_t {
        ipv4,
        ipv6,
        mac,
    };

    Kind kind_;
    std::uint8_t length_; // octets of octets_ that count
    std::array<std::uint8_t, 16> octets_{};
};

/// What the capture or the link header says; else sent when any of the node's addresses is the
/// frame's source, and received when none is.
[[nodiscard]] Direction directionOf(const FrameSource& source,
                                    std::span<const LocalAddress> locals) noexcept;

} // namespace Packets
