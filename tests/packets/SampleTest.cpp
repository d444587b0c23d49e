// The sample capture against the counts that its generator meant.

#include "Support.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace Packets::Test {

TEST(Sample, CountsAsTheGeneratorMeant) {
    const std::map<int, std::string> defects{{5, "format"}, {6, "objects"}, {7, "checksum"}};
    const auto expected = nlohmann::json::parse(std::ifstream(PACKETS_SAMPLE_EXPECTED));
    std::map<std::string, std::uint64_t> messages, errors;
    for (const auto& row : expected.at("messages")) {
        EXPECT_EQ(row.at("interface"), CaptureFile(PACKETS_SAMPLE).interfaceName());
        EXPECT_GT(row.at("count"), 0);
        const std::string family = row.at("family") == "ipv4" ? " 4 " : " 6 ";
        const std::string key = std::string(row.at("direction")) + family;
        messages[key + row.at("typeNumber").dump()] += std::uint64_t(row.at("count"));
    }
    for (const auto& row : expected.at("errors")) {
        const std::string key = std::string(row.at("direction")) + " ";
        errors[key + defects.at(row.at("errorNumber"))] += std::uint64_t(row.at("count"));
    }
    // It shows eleven types and the erroneous in both families and directions, and every defect.
    EXPECT_EQ(messages.size(), 2U * 2U * 12U);
    EXPECT_EQ(errors.size(), 2U * 3U);

    Recorder counts;
    std::map<Outcome, std::uint64_t> outcomes;
    for (const OwnedFrame& owned : readFrames(PACKETS_SAMPLE)) {
        ++outcomes[decodeFrame(LinkType::ethernet, owned.frame(), counts)];
    }
    EXPECT_EQ(outcomes.size(), 4U);
    EXPECT_EQ(counts.messages, messages);
    EXPECT_EQ(counts.errors, errors);
    EXPECT_EQ(outcomes[Outcome::accepted] + outcomes[Outcome::erroneous], expected.at("rsvp"));
    EXPECT_EQ(outcomes[Outcome::ignored], expected.at("ignored"));
    EXPECT_EQ(outcomes[Outcome::cut], expected.at("cut"));
}

TEST(Sample, IsWhatTheGeneratorMakes) {
    const std::string command = fmt::format(
        "mkdir '{2}' && '{0}' -B '{1}' --output '{2}/two-links.pcap' && "
        "cmp '{2}/two-links.pcap' '{3}' && cmp '{2}/two-links.expected.json' '{4}' && rm -r '{2}'",
        PACKETS_PYTHON, PACKETS_GENERATOR, scratch, PACKETS_SAMPLE, PACKETS_SAMPLE_EXPECTED);
    EXPECT_EQ(std::system(command.c_str()), 0);
}

} // namespace Packets::Test
