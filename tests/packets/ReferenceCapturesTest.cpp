// Captures with the findings of an independent decoder. They are no part of the project; without
// them this test is skipped.

#include "Support.h"

#include <sstream>

namespace Packets::Test {

TEST(ReferenceCaptures, FramesCountAsTheOtherDecoderFound) {
    const std::filesystem::path captures = PACKETS_CAPTURES;
    if (!std::filesystem::is_directory(captures)) GTEST_SKIP() << "no captures in " << captures;
    // What each kind of damage leads to; the others leave sound messages.
    std::istringstream kinds(
        "bad_version format message_length_lt_8 format message_length_over_payload format "
        "short_header format unknown_message_type format other_known_type format "
        "nested_bundle format bundle_truncated_submessage format bad_checksum checksum "
        "bundle_inner_bad_checksum checksum object_length_zero objects object_length_3 objects "
        "object_length_not_mult4 objects object_overruns_message objects");
    std::map<std::string, std::string> defects;
    for (std::string damage; kinds >> damage;) {
        kinds >> defects[damage];
    }
    std::uint64_t good = 0;
    for (const std::string name : {"synth/synth-link", "synth/synth-bad", "real/peafowl-rsvp"}) {
        const std::vector<OwnedFrame> frames = readFrames(captures / (name + ".pcap"));
        std::vector<Recorder> expected(frames.size()); // of frames with an error, only that
        std::ifstream sheet(captures / "expected" /
                            (name.substr(name.find('/') + 1) + ".packets.csv"));
        std::string line;
        std::getline(sheet, line);
        while (std::getline(sheet, line)) {
            // Up to the message type no field is in quotes, nor is the last one, the damage.
            std::vector<std::string> fields(15);
            std::istringstream in(line);
            for (std::string& field : fields) {
                std::getline(in, field, ',');
            }
            const std::string damage = line.substr(line.rfind(',') + 1);
            const std::string direction = fields[5] == "tx" ? "tx " : "rx ";
            Recorder& frame = expected.at(std::stoull(fields[0]) - 1);
            ++frame.messages[direction + fields[10] + " " + fields[14]];
            if (defects.contains(damage)) frame.errors[direction + defects[damage]] = 1;
            frame.findings = damage;
        }
        for (std::size_t index = 0; index < frames.size(); ++index) {
            SCOPED_TRACE(name + " frame " + std::to_string(index + 1));
            Recorder counts;
            const Outcome outcome = decodeFrame(LinkType::ethernet, frames[index].frame(), counts);
            const Recorder& frame = expected[index];
            const bool isCut = frame.findings == "snap_truncated";
            EXPECT_EQ(outcome == Outcome::cut, isCut);
            EXPECT_EQ(counts.errors, frame.errors);
            EXPECT_TRUE(isCut || !frame.errors.empty() || counts.messages == frame.messages);
            for (const auto& [key, count] : counts.messages) {
                good += key.ends_with(" 0") ? 0 : count;
            }
        }
    }
    EXPECT_EQ(good, 5190U + 636U + 3U);
}

} // namespace Packets::Test
