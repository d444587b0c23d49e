// Every frame of the sample, cut at every length and with every bit flipped: no read outside (each
// frame fills its heap block exactly, for an address checker to see), and outcomes that make sense.

#include "Support.h"

#include <algorithm>

namespace Packets::Test {
namespace {

struct Result {
    Outcome outcome{};
    std::vector<Finding> findings;
    bool operator==(const Result&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Result& result) {
    out << result.outcome << ':';
    for (const Finding& finding : result.findings) {
        out << ' ' << finding;
    }
    return out;
}

/// Decodes, and checks what holds for every frame whatever it holds.
[[nodiscard]] Result decode(const Frame& frame) {
    Recorder recorder;
    const Outcome outcome = decodeFrame(LinkType::ethernet, frame, recorder);
    const bool rsvp = outcome == Outcome::accepted || outcome == Outcome::erroneous;
    const auto bad = [](const Finding& finding) { return finding.defect != Defect::none; };
    const auto& findings = recorder.findings;
    EXPECT_EQ(recorder.packets, rsvp ? 1 : 0);
    EXPECT_EQ(findings.empty(), !rsvp);
    EXPECT_EQ(std::any_of(findings.begin(), findings.end(), bad), outcome == Outcome::erroneous);
    return {outcome, findings};
}

[[nodiscard]] OwnedFrame shortened(const OwnedFrame& from, std::size_t length,
                                   std::size_t wireLength) {
    const auto end = from.octets.begin() + static_cast<std::ptrdiff_t>(length);
    return {.octets = {from.octets.begin(), end}, .wireLength = wireLength};
}

class Robustness : public testing::Test {
  protected:
    std::vector<OwnedFrame> frames_ = readFrames(PACKETS_SAMPLE);
};

TEST_F(Robustness, CutFramesAreNeverJudged) {
    for (std::size_t index = 0; index < frames_.size(); ++index) {
        const OwnedFrame& original = frames_[index];
        const Result whole = decode(original.frame());
        const bool rsvp = !whole.findings.empty();
        bool complete = false; // what decides about the frame is there
        for (std::size_t length = 0; length < original.octets.size(); ++length) {
            const OwnedFrame piece = shortened(original, length, original.wireLength);
            const Result result = decode(piece.frame());
            complete = complete || result.outcome != Outcome::cut;
            // More bytes change "cut" to the frame's outcome, once and for all.
            ASSERT_EQ(result, complete ? whole : (Result{Outcome::cut, {}}))
                << "frame " << index + 1 << " cut at " << length;
        }
        // Only padding may be missing from what is judged, and a frame above 60 octets has none.
        ASSERT_FALSE(complete && rsvp && original.octets.size() > 60) << "frame " << index + 1;
    }
}

TEST_F(Robustness, FramesThatEndEarlyAreNoRsvp) {
    for (std::size_t index = 0; index < frames_.size(); ++index) {
        const OwnedFrame& original = frames_[index];
        const Result whole = decode(original.frame());
        if (whole.outcome == Outcome::cut) continue;
        for (std::size_t length = 0; length < original.octets.size(); ++length) {
            const Result result = decode(shortened(original, length, length).frame());
            const bool padding = original.octets.size() == 60 && result == whole;
            ASSERT_TRUE(result.outcome == Outcome::ignored || padding)
                << "frame " << index + 1 << " ends at " << length << ": " << result;
        }
    }
}

TEST_F(Robustness, NoFlippedBitIsAcceptedUnderAChecksum) {
    std::size_t flips = 0;
    for (std::size_t index = 0; index < frames_.size(); ++index) {
        OwnedFrame damaged =
            shortened(frames_[index], frames_[index].octets.size(), frames_[index].wireLength);
        RsvpPacket packet;
        std::size_t begin = damaged.octets.size();
        std::size_t end = begin;
        if (decode(damaged.frame()).outcome == Outcome::accepted) {
            ASSERT_EQ(locateRsvp(LinkType::ethernet, damaged.frame(), packet), Location::found);
            begin = static_cast<std::size_t>(packet.payload.data() - damaged.octets.data());
            end = begin + readBe16(packet.payload.data() + 6);
        }
        for (std::size_t bit = 0; bit < damaged.octets.size() * 8; ++bit) {
            std::uint8_t& octet = damaged.octets[bit / 8];
            const auto mask = static_cast<std::uint8_t>(1U << bit % 8);
            octet ^= mask;
            const Result result = decode(damaged.frame());
            const bool inMessage = bit / 8 >= begin && bit / 8 < end;
            if (inMessage && readBe16(damaged.octets.data() + begin + 2) != 0) {
                ++flips;
                ASSERT_EQ(result.outcome, Outcome::erroneous)
                    << "frame " << index + 1 << " bit " << bit;
            }
            octet ^= mask;
        }
    }
    EXPECT_GT(flips, 1'000'000U);
}

} // namespace
} // namespace Packets::Test
