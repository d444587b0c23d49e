#pragma once

#include "packets/CaptureFile.h"
#include "packets/FrameDecoder.h"
#include "packets/LocalAddress.h"

#include <gtest/gtest.h>

#include <compare>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <ostream>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace Packets {

std::ostream& operator<<(std::ostream& out, Outcome outcome);
std::ostream& operator<<(std::ostream& out, Defect defect);
std::ostream& operator<<(std::ostream& out, Location location);

namespace Test {

using Octets = std::vector<std::uint8_t>;

/// Puts parts in a row.
[[nodiscard]] Octets concat(std::initializer_list<Octets> parts);
[[nodiscard]] Octets be16(std::size_t value);

/// The checksum of RFC 1071 by its definition, one 16-bit word after the other; 0 for the field.
[[nodiscard]] std::uint16_t slowChecksum(Bytes bytes);
/// Writes the right checksum into the message that fills `octets`.
void seal(std::span<std::uint8_t> octets);

[[nodiscard]] Octets object(std::uint8_t number, std::size_t bodySize);
/// A sound message of this type around `body`.
[[nodiscard]] Octets message(MessageType type, const Octets& body = {});
/// A sound message with a few objects.
[[nodiscard]] Octets plainMessage(MessageType type = MessageType::path);

struct Finding {
    std::uint8_t type = 0;
    Defect defect = Defect::none;
    auto operator<=>(const Finding&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Finding& finding);

/// Sink that keeps what it was told.
struct Recorder {
    void packet(const FrameSource& source) {
        ++packets;
        family = source.family;
    }
    void verdict(const Verdict& verdict) {
        findings.push_back({verdict.type, verdict.defect});
        EXPECT_EQ(verdict.family, family);
    }

    int packets = 0;
    Family family = Family::ipv4;
    std::vector<Finding> findings;
};

/// Sink that counts as the tool does.
struct Counts {
    using MessageKey = std::tuple<Direction, Family, int>; // type 0: erroneous

    explicit Counts(std::vector<LocalAddress> localAddresses)
        : locals(std::move(localAddresses)) {}

    void packet(const FrameSource& source) { direction = directionOf(source, locals); }
    void verdict(const Verdict& verdict) {
        const bool good = verdict.defect == Defect::none;
        ++messages[{direction, verdict.family, good ? verdict.type : 0}];
        if (!good) ++errors[{direction, verdict.defect}];
    }

    std::vector<LocalAddress> locals;
    Direction direction = Direction::received;
    std::map<Outcome, std::uint64_t> outcomes;
    std::map<MessageKey, std::uint64_t> messages;
    std::map<std::pair<Direction, Defect>, std::uint64_t> errors;
};

/// A frame that owns its bytes, in a heap block of exactly their size: an address checker then sees
/// every read outside.
struct OwnedFrame {
    [[nodiscard]] Frame frame() const { return {.captured = octets, .wireLength = wireLength}; }

    Octets octets;
    std::size_t wireLength = 0;
};

[[nodiscard]] std::vector<OwnedFrame> readFrames(const std::filesystem::path& path);

/// How often this program has called the allocating `operator new`.
[[nodiscard]] std::size_t allocationCount();

/// A directory that goes away with the object.
class ScratchDirectory {
  public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    [[nodiscard]] std::filesystem::path operator/(const std::string& name) const {
        return path_ / name;
    }

  private:
    std::filesystem::path path_;
};

[[nodiscard]] Octets readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, Bytes bytes);

} // namespace Test
} // namespace Packets
