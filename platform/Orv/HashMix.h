#pragma once

// Mixing of words into a hash without a seed. Its results reach buckets through key hashes, so they
// are part of the file format like those of Mox/Hash.h.

#include <bit>
#include <cstdint>
#include <cstring>

namespace Orv {

/// Multiplies to 128 bits and folds the halves: every bit of either operand reaches the whole
/// result in one multiplication.
inline std::uint64_t foldedMultiply(std::uint64_t left, std::uint64_t right) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(left) * right;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64U);
}

/// Accumulates 32-bit words, little-endian:
///
///     state = 0
///     each word k:   state = (rotl64(state, 32) ^ k) * 0x9E3779B97F4A7C15
///     result = the upper half of state
///
/// The upper half of a product depends on all bits of its lower half; the rotation puts it where
/// the next product spreads it again.
class HashMix {
  public:
    /// Mixes the four bytes at `word`, which needs no alignment.
    void mixBytes4(const void* word) {
        std::uint32_t value = 0;
        std::memcpy(&value, word, sizeof value);
        state_ = (std::rotl(state_, 32) ^ value) * 0x9E3779B97F4A7C15U;
    }

    operator unsigned int() const { return static_cast<unsigned int>(state_ >> 32U); }

  private:
    std::uint64_t state_ = 0;
};

} // namespace Orv
