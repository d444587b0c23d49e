#include "packets/PcapngReader.h"

#include "packets/InputError.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

namespace Packets {

namespace {

constexpr std::size_t headerLength = 8; // type and length of a block
constexpr std::size_t trailerLength = 4;
constexpr std::size_t sectionHeaderLength = 28;
constexpr std::size_t maxBlock = std::size_t{16} << 20U;
constexpr std::size_t maxInterfaces = 65536;
constexpr std::size_t longestName = 255; // octets that are kept

constexpr std::uint32_t byteOrderMagic = 0x1A2B3C4D;
constexpr std::uint32_t interfaceDescription = 1;
constexpr std::uint32_t obsoletePacket = 2;
constexpr std::uint32_t simplePacketBlock = 3;
constexpr std::uint32_t enhancedPacketBlock = 6;

namespace Option {
constexpr std::uint16_t end = 0;
constexpr std::uint16_t packetFlags = 2; // of packets
constexpr std::uint16_t name = 2;        // of interfaces, like the next
constexpr std::uint16_t resolution = 9;
constexpr std::uint16_t offset = 14;
} // namespace Option

/// The reason alone: the file's name and the record are added by who knows them.
template <class... Args>
[[noreturn]] void fail(fmt::format_string<Args...> format, Args&&... args) {
    throw InputError(fmt::format(format, std::forward<Args>(args)...));
}

[[nodiscard]] constexpr std::size_t padded(std::size_t octets) noexcept {
    return (octets + 3) / 4 * 4;
}

__extension__ using Wide = __int128;

/// A time that 64 bits of nanoseconds cannot say becomes the nearest that they can.
[[nodiscard]] std::int64_t clamped(Wide nanoseconds) noexcept {
    using Limits = std::numeric_limits<std::int64_t>;
    return static_cast<std::int64_t>(
        std::clamp(nanoseconds, Wide{Limits::min()}, Wide{Limits::max()}));
}

[[nodiscard]] Wide nanosecondsOf(std::uint64_t units, bool binary, unsigned exponent) noexcept {
    constexpr unsigned nano = 9;
    if (binary) {
        // In full width: the product has up to 94 bits.
        return (Wide{units} * 1'000'000'000) >> std::min(exponent, 126U);
    }
    Wide result = units;
    for (unsigned i = exponent; i < nano; ++i) {
        result *= 10;
    }
    for (unsigned i = nano; i < exponent && result != 0; ++i) {
        result /= 10;
    }
    return result;
}

} // namespace

PcapngReader::PcapngReader(File file)
    : file_(std::move(file)) {
    if (!readBlock()) fail("the file is empty");
}

std::uint16_t PcapngReader::word16(const std::uint8_t* octets) const noexcept {
    const std::uint16_t big = readBe16(octets);
    return bigEndian_ ? big : __builtin_bswap16(big);
}

std::uint32_t PcapngReader::word32(const std::uint8_t* octets) const noexcept {
    const std::uint32_t big = readBe32(octets);
    return bigEndian_ ? big : __builtin_bswap32(big);
}

void PcapngReader::readExactly(std::size_t at, std::size_t octets, const char* what) {
    if (block_.size() < at + octets) block_.resize(at + octets);
    const std::size_t got = std::fread(block_.data() + at, 1, octets, file_.get());
    if (got == octets) return;
    if (std::ferror(file_.get()) != 0) fail("cannot read: {}", std::strerror(errno));
    fail("the file ends in {}: {} of {} octets are there", what, got, octets);
}

/// Reads a block, whatever it is, into `block_`; false at the end of the file.
bool PcapngReader::readBlock() {
    const int first = std::getc(file_.get());
    if (first == EOF && std::ferror(file_.get()) == 0) return false;
    std::ungetc(first, file_.get());
    readExactly(0, headerLength, "the header of a block");
    type_ = word32(block_.data());
    std::size_t have = headerLength;
    std::size_t least = headerLength + trailerLength;
    if (type_ == sectionHeader) { // the same in either byte order
        least = sectionHeaderLength;
        readExactly(have, 4, "a section header");
        have += 4;
        const std::uint32_t magic = readBe32(block_.data() + headerLength);
        if (magic != byteOrderMagic && magic != __builtin_bswap32(byteOrderMagic)) {
            fail("bad byte-order magic {:#010x} of a section", magic);
        }
        bigEndian_ = magic == byteOrderMagic;
    }
    const std::size_t length = word32(block_.data() + 4);
    if (length < least || length % 4 != 0 || length > maxBlock) {
        fail("bad length {} of a block of type {:#x}", length, type_);
    }
    readExactly(have, length - have, "a block");
    block_.resize(length); // its memory stays
    if (const std::uint32_t again = word32(block_.data() + length - trailerLength);
        again != length) {
        fail("a block of type {:#x} has length {} at its begin and {} at its end", type_, length,
             again);
    }
    if (type_ == sectionHeader) {
        if (const std::uint16_t major = word16(block_.data() + 12); major != 1) {
            fail("a section of version {}, wanted 1", major);
        }
        firstOfSection_ = interfaces_.size();
    }
    return true;
}

template <class Visit>
void PcapngReader::forEachOption(Bytes options, Visit visit) const {
    while (options.size() >= 4) {
        const std::uint16_t code = word16(options.data());
        const std::size_t length = word16(options.data() + 2);
        if (code == Option::end) return;
        options = options.subspan(4);
        if (padded(length) > options.size()) return; // what stands before the options is good
        visit(code, options.first(length));
        options = options.subspan(padded(length));
    }
}

void PcapngReader::describeInterface(Bytes body) {
    constexpr std::size_t fixed = 8;
    if (body.size() < fixed) fail("a description of an interface is too short");
    if (interfaces_.size() == maxInterfaces) {
        fail("more than {} interfaces", maxInterfaces);
    }
    Interface interface;
    interface.linkTypeNumber = word16(body.data());
    interface.linkType = linkTypeOfNumber(interface.linkTypeNumber);
    interface.snapLength = word32(body.data() + 4);
    forEachOption(body.subspan(fixed), [&](std::uint16_t code, Bytes value) {
        if (code == Option::name) {
            interface.name.assign(value.begin(), std::find(value.begin(), value.end(), 0));
            interface.name.resize(std::min(interface.name.size(), longestName));
        } else if (code == Option::resolution && value.size() == 1) {
            interface.binary = (value[0] & 0x80U) != 0;
            interface.exponent = value[0] & 0x7fU;
        } else if (code == Option::offset && value.size() == 8) {
            const std::uint64_t one = word32(value.data());
            const std::uint64_t other = word32(value.data() + 4);
            interface.offset =
                static_cast<std::int64_t>(bigEndian_ ? one << 32U | other : other << 32U | one);
        }
    });
    interfaces_.push_back(std::move(interface));
}

const PcapngReader::Interface& PcapngReader::interfaceOf(std::uint32_t inSection,
                                                         CaptureRecord& record) const {
    const std::size_t described = interfaces_.size() - firstOfSection_;
    if (inSection >= described) {
        fail("a packet of interface {}, of which {} are described", inSection, described);
    }
    const std::size_t index = firstOfSection_ + inSection;
    record.interface = static_cast<std::uint32_t>(index);
    record.linkType = interfaces_[index].linkType;
    return interfaces_[index];
}

/// The obsolete form has the number of dropped packets in the upper half of the interface's.
void PcapngReader::enhancedPacket(Bytes body, bool obsolete, CaptureRecord& record) {
    constexpr std::size_t fixed = 20;
    if (body.size() < fixed) fail("a packet block is too short");
    const Interface& interface =
        interfaceOf(obsolete ? word16(body.data()) : word32(body.data()), record);
    const std::uint64_t units =
        std::uint64_t{word32(body.data() + 4)} << 32U | word32(body.data() + 8);
    const std::size_t captured = word32(body.data() + 12);
    if (captured > body.size() - fixed) {
        fail("a packet of {} octets in a block that has room for {}", captured,
             body.size() - fixed);
    }
    record.timestamp = lastTimestamp_ =
        clamped(nanosecondsOf(units, interface.binary, interface.exponent) +
                Wide{interface.offset} * 1'000'000'000);
    record.frame = {.captured = body.subspan(fixed, captured),
                    .wireLength = word32(body.data() + 16)};
    record.direction = Direction::unknown;
    const std::size_t options = std::min(fixed + padded(captured), body.size());
    forEachOption(body.subspan(options), [&](std::uint16_t code, Bytes value) {
        if (code != Option::packetFlags || value.size() != 4) return;
        constexpr std::uint32_t inbound = 1;
        constexpr std::uint32_t outbound = 2;
        const std::uint32_t direction = word32(value.data()) & 3U;
        if (direction == inbound) record.direction = Direction::received;
        if (direction == outbound) record.direction = Direction::sent;
    });
}

/// A simple packet has no time; it is that of the packet before.
void PcapngReader::simplePacket(Bytes body, CaptureRecord& record) {
    constexpr std::size_t fixed = 4;
    if (body.size() < fixed) fail("a packet block is too short");
    const Interface& interface = interfaceOf(0, record);
    const std::size_t wireLength = word32(body.data());
    std::size_t captured = wireLength;
    if (interface.snapLength != 0) captured = std::min<std::size_t>(captured, interface.snapLength);
    if (captured > body.size() - fixed) {
        fail("a packet of {} octets in a block that has room for {}", captured,
             body.size() - fixed);
    }
    record.timestamp = lastTimestamp_;
    record.frame = {.captured = body.subspan(fixed, captured), .wireLength = wireLength};
    record.direction = Direction::unknown;
}

bool PcapngReader::next(CaptureRecord& record) {
    while (readBlock()) {
        const Bytes body =
            Bytes(block_).subspan(headerLength, block_.size() - headerLength - trailerLength);
        switch (type_) {
        case interfaceDescription:
            describeInterface(body);
            break;
        case enhancedPacketBlock:
        case obsoletePacket:
            enhancedPacket(body, type_ == obsoletePacket, record);
            return true;
        case simplePacketBlock:
            simplePacket(body, record);
            return true;
        default:
            break;
        }
    }
    return false;
}

std::string PcapngReader::interfaceName(std::uint32_t interface) const {
    return interfaces_.at(interface).name;
}

std::uint32_t PcapngReader::linkTypeNumber(std::uint32_t interface) const {
    return interfaces_.at(interface).linkTypeNumber;
}

} // namespace Packets
