#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Packets {

using Bytes = std::span<const std::uint8_t>;

/// Reads two octets in network byte order; `bytes` need not be aligned.
[[nodiscard]] inline std::uint16_t readBe16(const std::uint8_t* bytes) noexcept {
    return static_cast<std::uint16_t>((bytes[0] << 8) | bytes[1]);
}

/// The same for four octets.
[[nodiscard]] inline std::uint32_t readBe32(const std::uint8_t* bytes) noexcept {
    return (std::uint32_t{readBe16(bytes)} << 16U) | readBe16(bytes + 2);
}

enum class Family : std::uint8_t {
    ipv4,
    ipv6,
};

/// Which way a frame went, seen from the node whose messages are counted.
enum class Direction : std::uint8_t {
    received,
    sent,
    unknown, ///< nothing tells
};

/// One frame as a capture delivers it. The bytes are borrowed.
struct Frame {
    Bytes captured;
    /// Length on the wire. A capture with a snap length may hold less; a value below
    /// `captured.size()` is nonsense and counts as `captured.size()`.
    std::size_t wireLength = 0;
};

/// Who sent a frame, as its headers say. The addresses point into the frame.
struct FrameSource {
    Direction direction = Direction::unknown; ///< as the capture or the link header says
    const std::uint8_t* mac = nullptr;        ///< 6 octets; null on links without MAC addresses
    Family family = Family::ipv4;
    const std::uint8_t* address = nullptr; ///< 4 or 16 octets, after `family`
};

} // namespace Packets
