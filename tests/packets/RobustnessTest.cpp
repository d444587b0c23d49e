// Every frame of the sample, cut at every length and with every bit flipped: no read outside (each
// frame fills its heap block exactly, for an address checker to see), and outcomes that make sense.

#include "Support.h"

namespace Packets::Test {

using Result = std::pair<Outcome, std::string>;

/// Decodes, and checks what holds for every frame whatever it holds.
[[nodiscard]] Result decode(const Octets& octets, std::size_t wireLength) {
    Recorder recorder;
    const Frame frame{.captured = octets, .wireLength = wireLength};
    const Outcome outcome = decodeFrame(LinkType::ethernet, frame, recorder);
    const bool rsvp = outcome == Outcome::accepted || outcome == Outcome::erroneous;
    EXPECT_EQ(recorder.packets, rsvp ? 1 : 0);
    EXPECT_EQ(recorder.findings.empty(), !rsvp);
    EXPECT_EQ(recorder.errors.empty(), outcome != Outcome::erroneous);
    return {outcome, recorder.findings};
}

TEST(Robustness, PartsOfFramesAreNeverJudged) {
    for (const OwnedFrame& original : readFrames(PACKETS_SAMPLE)) {
        const std::size_t size = original.octets.size();
        const Result whole = decode(original.octets, original.wireLength);
        bool complete = false; // what decides about the frame is there
        for (std::size_t length = 0; length < size; ++length) {
            const Octets piece = firstOf(original.octets, length);
            const Result cut = decode(piece, original.wireLength);
            complete = complete || cut.first != Outcome::cut;
            // More bytes change "cut" to the frame's outcome, once and for all.
            ASSERT_EQ(cut, complete ? whole : Result(Outcome::cut, "")) << length;
            // A frame of 60 octets may end in padding, which is not judged.
            const Result ended = decode(piece, length);
            ASSERT_TRUE(ended.first == Outcome::ignored || whole.first == Outcome::cut ||
                        (size == 60 && ended == whole))
                << "ends at " << length;
        }
        ASSERT_FALSE(complete && !whole.second.empty() && size > 60);
    }
}

TEST(Robustness, NoFlippedBitIsAcceptedUnderAChecksum) {
    std::size_t flips = 0;
    for (OwnedFrame& damaged : readFrames(PACKETS_SAMPLE)) {
        const bool isGood = decode(damaged.octets, damaged.wireLength).first == Outcome::accepted;
        RsvpPacket packet;
        (void)locateRsvp(LinkType::ethernet, damaged.frame(), packet);
        const std::uint8_t* message = packet.payload.data();
        const std::size_t size = isGood ? readBe16(message + 6) : 0;
        for (std::size_t bit = 0; bit < damaged.octets.size() * 8; ++bit) {
            std::uint8_t& octet = damaged.octets[bit / 8];
            const auto mask = static_cast<std::uint8_t>(1U << bit % 8);
            octet ^= mask;
            const Result result = decode(damaged.octets, damaged.wireLength);
            if (isGood && &octet >= message && &octet < message + size &&
                readBe16(message + 2) != 0) {
                ++flips;
                ASSERT_EQ(result.first, Outcome::erroneous) << "bit " << bit;
            }
            octet ^= mask;
        }
    }
    EXPECT_GT(flips, 1'000'000U);
}

} // namespace Packets::Test
