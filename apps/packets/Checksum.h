#pragma once

#include "packets/Frame.h"

#include <cstdint>

namespace Packets {

/// The one's complement sum of 16-bit words (RFC 1071), folded to 16 bits, in the byte order of
/// this machine. Over a message that includes its checksum field the sum is 0xffff exactly when the
/// checksum is right, in either byte order.
///
/// `bytes.size()` must be a multiple of 4, which holds for every RSVP message whose length was
/// checked, and below 2^32.
[[nodiscard]] std::uint16_t onesComplementSum(Bytes bytes) noexcept;

} // namespace Packets
