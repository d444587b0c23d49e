// The sample capture against the counts that its generator meant.

#include "Support.h"

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <set>

namespace Packets::Test {
namespace {

using nlohmann::json;

[[nodiscard]] json loadExpected() {
    std::ifstream in(PACKETS_SAMPLE_EXPECTED);
    return json::parse(in);
}

[[nodiscard]] Direction directionNamed(const json& row) {
    const std::string name = row.at("direction");
    EXPECT_TRUE(name == "rx" || name == "tx") << name;
    return name == "tx" ? Direction::sent : Direction::received;
}

TEST(Sample, CountsAsTheGeneratorMeant) {
    const std::map<int, Defect> defects{
        {5, Defect::format}, {6, Defect::objects}, {7, Defect::checksum}};
    const json expected = loadExpected();

    Counts counts({LocalAddress("02:00:5e:10:00")});
    CaptureFile capture(PACKETS_SAMPLE);
    CaptureRecord record;
    while (capture.next(record)) {
        ++counts.outcomes[decodeFrame(capture.linkType(), record.frame, counts)];
    }

    EXPECT_EQ(counts.outcomes[Outcome::accepted] + counts.outcomes[Outcome::erroneous],
              expected.at("rsvp"));
    EXPECT_EQ(counts.outcomes[Outcome::ignored], expected.at("ignored"));
    EXPECT_EQ(counts.outcomes[Outcome::cut], expected.at("cut"));

    std::map<Counts::MessageKey, std::uint64_t> messages;
    for (const json& row : expected.at("messages")) {
        EXPECT_EQ(row.at("interface"), capture.interfaceName());
        const Family family = row.at("family") == "ipv4" ? Family::ipv4 : Family::ipv6;
        messages[{directionNamed(row), family, row.at("typeNumber")}] +=
            row.at("count").get<std::uint64_t>();
    }
    EXPECT_EQ(counts.messages, messages);

    std::map<std::pair<Direction, Defect>, std::uint64_t> errors;
    for (const json& row : expected.at("errors")) {
        errors[{directionNamed(row), defects.at(row.at("errorNumber"))}] +=
            row.at("count").get<std::uint64_t>();
    }
    EXPECT_EQ(counts.errors, errors);
}

TEST(Sample, ShowsEveryTypeInBothFamiliesAndDirections) {
    // The counts compared above would agree on a sample that shows nothing.
    std::set<std::tuple<Direction, std::string, int>> rows;
    const json expected = loadExpected();
    for (const json& row : expected.at("messages")) {
        const std::string family = row.at("family");
        const int type = row.at("typeNumber");
        if (row.at("count") > 0) rows.insert({directionNamed(row), family, type});
    }
    EXPECT_EQ(rows.size(), 2U * 2U * 12U); // eleven types and the erroneous
    EXPECT_EQ(expected.at("errors").size(), 2U * 3U);
    EXPECT_GT(expected.at("cut"), 0);
    EXPECT_GT(expected.at("ignored"), 0);
}

TEST(Sample, IsWhatTheGeneratorMakes) {
    const ScratchDirectory directory;
    const auto remade = directory / "two-links.pcap";
    const std::string command =
        std::string("'" PACKETS_PYTHON "' -B '" PACKETS_GENERATOR "' --output '") +
        remade.string() + "' 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(readFile(remade), readFile(PACKETS_SAMPLE));
    EXPECT_EQ(readFile(directory / "two-links.expected.json"), readFile(PACKETS_SAMPLE_EXPECTED));
}

} // namespace
} // namespace Packets::Test
