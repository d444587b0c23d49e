#include "packets/Checksum.h"

#include <cassert>
#include <cstring>

namespace Packets {

std::uint16_t onesComplementSum(Bytes bytes) noexcept {
    assert(bytes.size() % 4 == 0);
    // Wider words may be added and folded at the end (RFC 1071, section 2 (C)). Halves of 32 bits
    // in 64-bit sums need no carry handling: 2^30 of them fit. Two sums keep two adders busy.
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    const std::uint8_t* at = bytes.data();
    std::size_t left = bytes.size();
    for (; left >= 8; left -= 8, at += 8) {
        std::uint64_t word;
        std::memcpy(&word, at, sizeof word);
        low += word & 0xffffffffU;
        high += word >> 32;
    }
    if (left != 0) {
        std::uint32_t word;
        std::memcpy(&word, at, sizeof word);
        low += word;
    }
    std::uint64_t sum = low + high;
    while (sum > 0xffffU) {
        sum = (sum & 0xffffU) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(sum);
}

} // namespace Packets
