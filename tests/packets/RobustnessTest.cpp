// Every frame of the samples, cut at every length, rotated, and with every bit flipped: no read
// outside (each frame fills its heap block exactly, for an address checker to see), and outcomes
// that make sense.

#include "Support.h"

#include <algorithm>

namespace Packets::Test {

using Result = std::pair<Outcome, std::string>;

/// Decodes, and checks what holds for every frame whatever it holds.
[[nodiscard]] Result decode(LinkType type, const Octets& octets, std::size_t wireLength) {
    Recorder recorder;
    // One decoder, whose fragments are forgotten from frame to frame.
    static FrameDecoder decoder(noKeys);
    static std::int64_t time = 0;
    CaptureRecord record = recordOf(type, {.captured = octets, .wireLength = wireLength});
    record.timestamp = time += 2 * Reassembler::lifetime;
    const Outcome outcome = decoder.decode(record, recorder);
    const bool rsvp = outcome == Outcome::accepted || outcome == Outcome::erroneous;
    EXPECT_EQ(recorder.packets, rsvp ? 1 : 0);
    EXPECT_EQ(recorder.findings.empty(), !rsvp);
    EXPECT_EQ(recorder.errors.empty(), outcome != Outcome::erroneous);
    return {outcome, recorder.findings};
}
[[nodiscard]] Result decode(const OwnedFrame& frame) {
    return decode(frame.linkType, frame.octets, frame.wireLength);
}

/// The project's samples, and what there is of the reference captures, thinned out where a capture
/// has thousands of frames of few kinds.
[[nodiscard]] const std::vector<OwnedFrame>& allFrames() {
    static const std::vector<OwnedFrame> frames = [] {
        std::vector<std::filesystem::path> captures;
        for (const char* const folder :
             {PACKETS_SAMPLES, PACKETS_CAPTURES "/real", PACKETS_CAPTURES "/synth"}) {
            std::error_code absent;
            for (const auto& entry : std::filesystem::directory_iterator(folder, absent)) {
                if (entry.path().extension() != ".json") captures.push_back(entry.path());
            }
        }
        std::vector<OwnedFrame> chosen;
        for (const std::filesystem::path& capture : captures) {
            constexpr std::size_t most = 2500;
            std::vector<OwnedFrame> read = readFrames(capture);
            const std::size_t every = read.size() / most + 1;
            for (std::size_t at = 0; at < read.size(); at += every) {
                chosen.push_back(std::move(read[at]));
            }
        }
        return chosen;
    }();
    return frames;
}

TEST(Robustness, PartsOfFramesAreNeverJudged) {
    for (const OwnedFrame& original : allFrames()) {
        const std::size_t size = original.octets.size();
        const Result whole = decode(original);
        bool complete = false; // what decides about the frame is there
        for (std::size_t length = 0; length < size; ++length) {
            const Octets piece = firstOf(original.octets, length);
            const Result cut = decode(original.linkType, piece, original.wireLength);
            complete = complete || cut.first != Outcome::cut;
            // More bytes change "cut" to the frame's outcome, once and for all.
            ASSERT_EQ(cut, complete ? whole : Result(Outcome::cut, "")) << length;
            // Octets behind the packet are not judged; without one of its own it has no end.
            const Result ended = decode(original.linkType, piece, length);
            ASSERT_TRUE(ended.first == Outcome::ignored || whole.first == Outcome::cut ||
                        ended == whole)
                << "ends at " << length;
        }
    }
}

TEST(Robustness, RotatedFramesReadNothingOutside) {
    std::size_t rsvp = 0;
    for (const OwnedFrame& original : allFrames()) {
        Octets octets = original.octets;
        for (std::size_t turn = 1; turn < octets.size(); ++turn) {
            std::rotate(octets.begin(), octets.begin() + 1, octets.end());
            const Result result = decode(original.linkType, octets, original.wireLength);
            if (!result.second.empty()) ++rsvp;
        }
    }
    std::cout << allFrames().size() << " frames, " << rsvp << " rotations with RSVP\n";
}

TEST(Robustness, NoFlippedBitIsAcceptedUnderAChecksum) {
    std::size_t flips = 0;
    for (OwnedFrame damaged : allFrames()) {
        const bool isGood = decode(damaged).first == Outcome::accepted;
        RsvpPacket packet;
        (void)FrameDecoder(noKeys).locate(recordOf(damaged.linkType, damaged.frame()), packet);
        const std::uint8_t* message = packet.payload.data();
        const std::size_t size = isGood ? readBe16(message + 6) : 0;
        for (std::size_t bit = 0; bit < damaged.octets.size() * 8; ++bit) {
            std::uint8_t& octet = damaged.octets[bit / 8];
            const auto mask = static_cast<std::uint8_t>(1U << bit % 8);
            octet ^= mask;
            const Result result = decode(damaged);
            if (isGood && &octet >= message && &octet < message + size &&
                readBe16(message + 2) != 0) {
                ++flips;
                ASSERT_EQ(result.first, Outcome::erroneous) << "bit " << bit;
            }
            octet ^= mask;
        }
    }
    EXPECT_GT(flips, 1'000'000U);
    std::cout << flips << " flips under a checksum\n";
}

} // namespace Packets::Test
