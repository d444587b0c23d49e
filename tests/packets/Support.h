#pragma once

#include "packets/CaptureFile.h"
#include "packets/FrameDecoder.h"
#include "packets/LocalAddress.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include <unistd.h>

namespace Packets::Test {

using Octets = std::vector<std::uint8_t>;

/// Puts parts in a row.
[[nodiscard]] inline Octets concat(const std::vector<Octets>& parts) {
    Octets all;
    for (const Octets& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

[[nodiscard]] inline Octets firstOf(const Octets& octets, std::size_t length) {
    return {octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(length)};
}

[[nodiscard]] inline Octets with(Octets octets, std::size_t at, std::size_t value) {
    octets.at(at) = static_cast<std::uint8_t>(value);
    return octets;
}

[[nodiscard]] inline Octets be16(std::size_t value) {
    return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

/// The message with its checksum made right, by the definition of RFC 1071.
[[nodiscard]] inline Octets sealed(Octets octets) {
    std::size_t sum = 0;
    octets[2] = octets[3] = 0;
    for (std::size_t at = 0; at < octets.size(); ++at) {
        sum += at % 2 == 0 ? octets[at] * 256U : octets[at];
    }
    sum %= 0xffff;
    return with(with(octets, 2, ~sum >> 8), 3, ~sum);
}

[[nodiscard]] inline Octets object(std::uint8_t number, std::size_t bodySize) {
    return concat({be16(4 + bodySize), {number, 1}, Octets(bodySize, number)});
}

/// A sound message around `body`.
[[nodiscard]] inline Octets message(std::uint8_t type, const Octets& body = {}) {
    return sealed(concat({{0x10, type, 0, 0, 64, 0}, be16(8 + body.size()), body}));
}

/// A sound PATH with a few objects.
inline const Octets path =
    message(1, concat({object(1, 12), object(3, 8), object(5, 4), object(11, 0)}));

/// Sink that keeps what it was told, as in ", 12 good, 20 format", and counts as the tool does.
struct Recorder {
    void packet(const FrameSource& source) {
        ++packets;
        direction = directionOf(source, locals) == Direction::sent ? "tx " : "rx ";
        family = source.family == Family::ipv4 ? "4 " : "6 ";
    }
    void verdict(const Verdict& verdict) {
        constexpr const char* names[] = {"good", "format", "checksum", "integrity", "objects"};
        const std::string defect = names[static_cast<int>(verdict.defect)];
        const std::string type = std::to_string(verdict.type);
        findings += ", " + type + " " + defect;
        ++messages[direction + family + (defect == "good" ? type : "0")];
        if (defect != "good") ++errors[direction + defect];
    }

    std::vector<LocalAddress> locals{LocalAddress("02:00:5e:10:00")};
    int packets = 0;
    std::string direction, family, findings;
    std::map<std::string, std::uint64_t> messages, errors;
};

inline const IntegrityKeys noKeys;

[[nodiscard]] inline CaptureRecord recordOf(LinkType type, const Frame& frame) {
    CaptureRecord record;
    record.frame = frame;
    record.linkType = type;
    return record;
}

/// Decodes a frame that has nothing to do with any other.
template <class Sink>
Outcome decodeFrame(LinkType type, const Frame& frame, Sink& sink) {
    return FrameDecoder(noKeys).decode(recordOf(type, frame), sink);
}

/// A frame that owns its bytes, in a heap block of exactly their size: an address checker then sees
/// every read outside.
struct OwnedFrame {
    [[nodiscard]] Frame frame() const { return {.captured = octets, .wireLength = wireLength}; }

    Octets octets;
    std::size_t wireLength = 0;
    LinkType linkType = LinkType::unknown;
};

[[nodiscard]] inline std::vector<OwnedFrame> readFrames(const std::filesystem::path& file) {
    CaptureFile capture(file);
    CaptureRecord record;
    std::vector<OwnedFrame> frames;
    while (capture.next(record)) {
        const Bytes bytes = record.frame.captured;
        frames.push_back({{bytes.begin(), bytes.end()}, record.frame.wireLength, record.linkType});
    }
    return frames;
}

/// A place of this process's own.
inline const std::string scratch = testing::TempDir() + "packetsTest." + std::to_string(getpid());

} // namespace Packets::Test
