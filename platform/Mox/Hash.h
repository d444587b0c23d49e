#pragma once

// Seeded 32-bit hashing of keys.
//
// Writer and readers are different processes, possibly different builds, and must agree on every
// bucket: the result for given bytes and seed is part of the file format and never changes. The
// test folder holds golden vectors computed by a second implementation.
//
//   h = 0, length = 0
//   each block k (1 or 4 bytes, little-endian):   h = rotl32((h ^ k) * 0xCC9E2D51, 15)
//                                                 length += bytes of k
//   result = fmix32(h ^ seed ^ length), the finaliser of MurmurHash3 (A. Appleby, public domain)
//
// A table takes the low bits as the bucket number, and the shadow takes the same bits reversed: the
// finaliser makes each of the 32 bits depend on every bit of the input. One multiplication per
// block keeps the way from key to bucket short, which every lookup waits for. For one seed and one
// block the result is a bijection of the block, so single-attribute keys never collide.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Mox {

static_assert(std::endian::native == std::endian::little, "blocks are hashed as little-endian");

class Hash {
  public:
    constexpr explicit Hash(std::uint32_t seed)
        : seed_(seed) {}

    /// Mixes the `Bytes` bytes at `block`, which needs no alignment.
    template <std::size_t Bytes>
    void hashMix(const void* block) {
        static_assert(Bytes == 1 || Bytes == 4, "blocks are single bytes or 32-bit words");
        std::uint32_t word = 0;
        std::memcpy(&word, block, Bytes);
        state_ = std::rotl((state_ ^ word) * 0xCC9E2D51U, 15);
        length_ += static_cast<std::uint32_t>(Bytes);
    }

    constexpr std::uint32_t result() const {
        std::uint32_t mixed = state_ ^ seed_ ^ length_;
        mixed ^= mixed >> 16U;
        mixed *= 0x85EBCA6BU;
        mixed ^= mixed >> 13U;
        mixed *= 0xC2B2AE35U;
        mixed ^= mixed >> 16U;
        return mixed;
    }

  private:
    std::uint32_t state_ = 0;
    std::uint32_t length_ = 0;
    std::uint32_t seed_;
};

/// The hash of a key that consists of one number or enumerator of 1 or 4 bytes.
template <class T>
std::uint32_t hashSingleAttr(std::uint32_t seed, const T& value) {
    static_assert(std::is_integral_v<T> || std::is_enum_v<T>, "hashes the bytes of a number");
    Hash hash(seed);
    hash.hashMix<sizeof(T)>(&value);
    return hash.result();
}

} // namespace Mox
