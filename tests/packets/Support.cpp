#include "Support.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Packets {

std::ostream& operator<<(std::ostream& out, Outcome outcome) {
    constexpr const char* names[] = {"accepted", "erroneous", "ignored", "cut"};
    return out << names[static_cast<std::size_t>(outcome)];
}

std::ostream& operator<<(std::ostream& out, Defect defect) {
    constexpr const char* names[] = {"none", "format", "checksum", "integrity", "objects"};
    return out << names[static_cast<std::size_t>(defect)];
}

std::ostream& operator<<(std::ostream& out, Location location) {
    constexpr const char* names[] = {"found", "ignored", "cut"};
    return out << names[static_cast<std::size_t>(location)];
}

namespace Test {

std::ostream& operator<<(std::ostream& out, const Finding& finding) {
    return out << static_cast<int>(finding.type) << ' ' << finding.defect;
}

Octets concat(std::initializer_list<Octets> parts) {
    Octets all;
    for (const Octets& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Octets be16(std::size_t value) {
    return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

std::uint16_t slowChecksum(Bytes bytes) {
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
        if (at != 2) sum += readBe16(bytes.data() + at);
        if (sum > 0xffff) sum -= 0xffff;
    }
    return static_cast<std::uint16_t>(~sum);
}

void seal(std::span<std::uint8_t> octets) {
    const std::uint16_t checksum = slowChecksum(octets);
    octets[2] = static_cast<std::uint8_t>(checksum >> 8);
    octets[3] = static_cast<std::uint8_t>(checksum);
}

Octets object(std::uint8_t number, std::size_t bodySize) {
    return concat({be16(4 + bodySize), {number, 1}, Octets(bodySize, number)});
}

Octets message(MessageType type, const Octets& body) {
    Octets all =
        concat({{0x10, static_cast<std::uint8_t>(type), 0, 0, 64, 0}, be16(8 + body.size()), body});
    seal(all);
    return all;
}

Octets plainMessage(MessageType type) {
    return message(type, concat({object(1, 12), object(3, 8), object(5, 4), object(11, 0)}));
}

std::vector<OwnedFrame> readFrames(const std::filesystem::path& path) {
    CaptureFile capture(path);
    CaptureRecord record;
    std::vector<OwnedFrame> frames;
    while (capture.next(record)) {
        const Bytes bytes = record.frame.captured;
        frames.push_back(
            {.octets = {bytes.begin(), bytes.end()}, .wireLength = record.frame.wireLength});
    }
    return frames;
}

ScratchDirectory::ScratchDirectory() {
    std::string pattern = testing::TempDir() + "packetsTest.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot make a directory like " + pattern);
    }
    path_ = pattern;
}

ScratchDirectory::~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

Octets readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + path.string());
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const std::filesystem::path& path, Bytes bytes) {
    std::ofstream out(path, std::ios::binary);
    for (const std::uint8_t byte : bytes) {
        out.put(static_cast<char>(byte));
    }
    if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
}

} // namespace Test
} // namespace Packets
