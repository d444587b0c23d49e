#include "RawTable.h"

#include "Environment.h"

#include <stdexcept>

namespace TestSupport {

namespace {

const std::vector<RawField> kSlotHeader = {
    {"slot size", 12, 4},
    {"ravo id", 16, 4},
    {"value size", 20, 4},
    {"runtime flags", 550, 2},
    {"occupied slots", 556, 4},
    {"head of the free list", 560, 4},
    {"the largest slot count", 564, 4},
    {"seed of the hashes", 568, 4},
    {"{version, slot count}", 576, 8},
    {"the largest number of entries", 584, 4},
};
const std::vector<RawField> kBucketHeader = {
    {"ravo id", 4, 4},
    {"{version, number of buckets}", 16, 8},
};
const std::vector<RawField> kNone;

} // namespace

RawFile::RawFile(const std::string& path)
    : bytes_(fileBytes(path)) {}

const std::vector<RawField>& RawFile::fields() const {
    const std::string magic(bytes_.begin(), bytes_.begin() + (bytes_.size() < 4 ? 0 : 4));
    return magic == "VSLT" ? kSlotHeader : magic == "VBKT" ? kBucketHeader : kNone;
}

std::uint64_t RawFile::header(std::string_view name) const {
    for (const RawField& field : fields()) {
        if (field.name == name) return number(field.offset, field.size);
    }
    throw std::out_of_range("no field " + std::string(name));
}

std::uint32_t RawFile::word(std::size_t offset) const {
    return static_cast<std::uint32_t>(number(offset, 4));
}

std::uint64_t RawFile::number(std::size_t offset, std::size_t size) const {
    std::uint64_t result = 0;
    for (std::size_t i = 0; i < size; ++i) {
        result |= std::uint64_t{bytes_.at(offset + i)} << 8 * i;
    }
    return result;
}

std::uint32_t reversedBits(std::uint32_t word) {
    std::uint32_t result = 0;
    for (unsigned bit = 0; bit < 32; ++bit) {
        result |= (word >> bit & 1U) << (31 - bit);
    }
    return result;
}

} // namespace TestSupport
