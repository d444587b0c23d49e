// Captures whose messages an independent decoder has counted. They are no part of the project;
// without them these tests are skipped.

#include "Tool.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace ToolTest {
namespace {

struct Captures : Tool {
    void SetUp() override {
        if (!std::filesystem::is_directory(folder + "/expected")) {
            GTEST_SKIP() << "no counted captures in " << folder;
        }
    }
    json report(const std::string& capture) const {
        const Outcome run = agent({"--json", "--pcap", folder + "/" + capture});
        EXPECT_EQ(run.code, 0) << run.err;
        return json::parse(run.out);
    }

    const std::string folder = RSVPVESK_CAPTURES;
};

TEST_F(Captures, SoundMessagesAreAllCounted) {
    const std::set<std::string> types{"PATH",     "RESV",     "PATHERR",  "RESVERR",
                                      "PATHTEAR", "RESVTEAR", "RESVCONF", "BUNDLE",
                                      "ACK",      "SREFRESH", "HELLO"};
    for (const std::string name : {"synth/synth-link", "real/peafowl-rsvp"}) {
        const std::string stem = name.substr(name.find('/') + 1);
        std::ifstream sheet(folder + "/expected/" + stem + ".counts.csv");
        Figures expected;
        std::string line;
        std::getline(sheet, line);
        ASSERT_EQ(line, "interface,dir,level,msg_type,msg_name,family,total,clean,no_checksum,"
                        "bad_checksum,malformed");
        while (std::getline(sheet, line)) {
            std::vector<std::string> cells;
            std::istringstream in(line);
            for (std::string cell; std::getline(in, cell, ',');) {
                cells.push_back(cell);
            }
            const std::uint64_t count = std::stoull(cells.at(7)) + std::stoull(cells.at(8));
            if (!types.contains(cells.at(4)) || count == 0) continue;
            expected
                .messages[{stem, cells[1].empty() ? "rx" : cells[1], "ipv" + cells[5], cells[4]}] +=
                count;
        }
        ASSERT_FALSE(expected.messages.empty());
        std::filesystem::remove_all(root);
        EXPECT_EQ(Figures(report(name + ".pcap")), expected);
    }
}

TEST_F(Captures, DefectsAreCountedByKind) {
    const Figures figures(report("synth/synth-bad.pcap"));
    std::map<std::string, std::uint64_t> sums;
    for (const auto& [row, count] : figures.messages) {
        sums[std::get<3>(row) == "ERROR" ? "bad" : "good"] += count;
    }
    for (const auto& [row, count] : figures.errors) {
        sums[std::get<1>(row)] += count;
    }
    EXPECT_EQ(sums,
              (std::map<std::string, std::uint64_t>{{"good", 636},
                                                    {"bad", 364},
                                                    {"invalidPktFormatErrorType", 208},
                                                    {"pktParserBadMsgChecksumErrorType", 52},
                                                    {"pktParserGenericFailureErrorType", 104}}));
}

} // namespace
} // namespace ToolTest
