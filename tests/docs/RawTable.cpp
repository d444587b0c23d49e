#include "RawTable.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Docs {

namespace {

std::vector<unsigned char> fileOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::uint32_t mixed(std::uint32_t h, std::uint32_t block) {
    h = (h ^ block) * 0xCC9E2D51U;
    return h << 15U | h >> 17U;
}

std::uint32_t finished(std::uint32_t h) {
    h = (h ^ h >> 16U) * 0x85EBCA6BU;
    h = (h ^ h >> 13U) * 0xC2B2AE35U;
    return h ^ h >> 16U;
}

} // namespace

std::uint32_t hashOfByte(std::uint8_t byte, std::uint32_t seed) {
    return finished(mixed(0, byte) ^ seed ^ 1U);
}

std::uint32_t hashOfInterface(std::uint64_t interface) {
    std::uint64_t x = (interface ^ interface >> 32U) * 0xFF51AFD7ED558CCDU;
    x = (x ^ x >> 29U) * 0xC4CEB9FE1A85EC53U;
    return static_cast<std::uint32_t>(x >> 32U);
}

std::uint32_t hashOfMessageKey(std::uint64_t interface, std::uint32_t type, std::uint32_t seed) {
    return finished(mixed(mixed(0, hashOfInterface(interface)), type) ^ seed ^ 8U);
}

std::uint32_t reversed(std::uint32_t word) {
    std::uint32_t result = 0;
    for (unsigned bit = 0; bit < 32; ++bit) {
        result |= (word >> bit & 1U) << (31 - bit);
    }
    return result;
}

RawTable::RawTable(const std::string& folder)
    : slots_(fileOf(folder + "/slots"))
    , buckets_(fileOf(folder + "/buckets")) {}

std::uint32_t RawTable::word(const Bytes& bytes, std::size_t offset) {
    std::uint32_t result = 0;
    for (unsigned i = 0; i < 4; ++i) {
        result |= std::uint32_t{bytes.at(offset + i)} << 8U * i;
    }
    return result;
}

std::optional<std::uint32_t> RawTable::count(std::uint8_t errorType) const {
    constexpr std::uint32_t lookaside = 600;
    const std::uint32_t slotSize = word(slots_, 12);
    const std::uint32_t numSlots = word(slots_, 580);
    const std::uint32_t rhash = reversed(hashOfByte(errorType, seed()));
    const std::uint32_t bucket = reversed(rhash) % numBuckets();
    std::uint32_t last = 0;
    std::uint32_t next = word(buckets_, 24 + 8 * std::size_t{bucket} + 4);
    for (std::uint32_t steps = 0; next >> 31U == 0; ++steps) {
        const std::size_t slot = 600 + std::size_t{slotSize} * (1 + next);
        const std::uint32_t sequence = word(slots_, slot + 8);
        const std::size_t content = (sequence & 2U) != 0 ? lookaside : slot;
        const std::uint32_t found = word(slots_, content + 12);
        if (steps == numSlots) throw std::runtime_error("the chain has no end");
        if ((sequence & 1U) == 0) throw std::runtime_error("a chained slot is not OCCUPIED");
        if (found < last) throw std::runtime_error("the chain is not sorted");
        if (found == rhash && slots_.at(content + 16) == errorType) {
            return word(slots_, content + 20);
        }
        last = found;
        next = word(slots_, slot + 4);
    }
    return std::nullopt;
}

} // namespace Docs
