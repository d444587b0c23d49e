// What the agent counts and prints, and that it lasts.

#include "Tool.h"

#include <filesystem>
#include <sstream>

namespace ToolTest {
namespace {

TEST_F(Tool, CountsTheSampleAndGoesOnFromTheFiles) {
    const json expected = sampleReport();
    for (std::uint64_t round = 1; round <= 3; ++round) {
        // Global options stand before the command or after it.
        const Outcome run = round == 2 ? tool({"--json", "--root", root, "agent", "--pcap", kSample,
                                               "--local", "02:00:5e:10:00"})
                                       : tool({"agent", "--pcap", kSample, "--local",
                                               "02:00:5e:10:00", "--root", root, "--json"});
        EXPECT_EQ(run.code, 0);
        EXPECT_EQ(run.err, "");
        const json report = json::parse(run.out);
        if (round == 1) {
            EXPECT_EQ(report, expected);
        }
        EXPECT_EQ(Figures(report), Figures(expected).times(round));
        EXPECT_EQ(report.at("frames"), expected.at("frames"));
    }
    EXPECT_EQ(agent({"--pcap", temp.path() + "/absent"}).code, 1);
    EXPECT_EQ(held(), Figures(expected).times(3));
}

TEST_F(Tool, TheTextReportSaysTheSame) {
    const Outcome run = agent({"--pcap", kSample});
    EXPECT_EQ(run.code, 0);
    Figures figures;
    std::istringstream lines(run.out);
    std::string folders;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::vector<std::string> row{std::istream_iterator<std::string>(words), {}};
        if (row.size() == 5 && row[4] != "count") {
            figures.messages[{row[0], row[1], row[2], row[3]}] = std::stoull(row[4]);
        } else if (row.size() == 3 && row[2] != "count" && row[0] != "Tables") {
            figures.errors[{row[1], row[0]}] = std::stoull(row[2]);
        } else if (row.size() == 1) {
            EXPECT_TRUE(std::filesystem::exists(root + "/" + row[0] + "/slots")) << line;
            folders += row[0] + " ";
        }
    }
    EXPECT_EQ(figures, Figures(sampleReport()));
    EXPECT_NE(run.out.find("\nframes 2400: 2307 with RSVP, 84 ignored, 9 cut short by the "
                           "capture\n"),
              std::string::npos);
    const std::string counters = "mpls/rsvp/messageCounters/";
    EXPECT_EQ(folders, counters + "rxIpv4Count " + counters + "rxIpv6Count " + counters +
                           "txIpv4Count " + counters +
                           "txIpv6Count mpls/rsvp/errorCounters/"
                           "rxErrorCount mpls/rsvp/errorCounters/txErrorCount ");
}

TEST_F(Tool, TheFilesHoldWhatTheReportSays) {
    const Outcome run = agent({"--json", "--pcap", kSample});
    const Figures reported(json::parse(run.out));
    const auto word = [](const std::vector<unsigned char>& bytes, std::size_t at) {
        std::uint32_t result = 0;
        for (unsigned i = 0; i < 4; ++i) {
            result |= std::uint32_t{bytes.at(at + i)} << 8U * i;
        }
        return result;
    };
    const std::map<unsigned, const char*> types{{0, "ERROR"},    {1, "PATH"},      {2, "RESV"},
                                                {3, "PATHERR"},  {4, "RESVERR"},   {5, "PATHTEAR"},
                                                {6, "RESVTEAR"}, {7, "RESVCONF"},  {12, "BUNDLE"},
                                                {13, "ACK"},     {15, "SREFRESH"}, {20, "HELLO"}};
    const std::map<unsigned, const char*> kinds{{5, "invalidPktFormatErrorType"},
                                                {6, "pktParserGenericFailureErrorType"},
                                                {7, "pktParserBadMsgChecksumErrorType"}};
    Figures figures;
    for (const char* const direction : {"rx", "tx"}) {
        for (const char* const family : {"Ipv4", "Ipv6"}) {
            const auto bytes = TestSupport::fileBytes(fmt::format(
                "{}/mpls/rsvp/messageCounters/{}{}Count/slots", root, direction, family));
            for (std::size_t slot = 0; slot < word(bytes, 580); ++slot) {
                const std::size_t at = 600 + 40 + 40 * slot;
                if ((word(bytes, at + 8) & 1U) == 0) continue;
                EXPECT_EQ(word(bytes, at + 16), 1U); // the only interface
                figures.messages[{"two-links", direction, family[3] == '4' ? "ipv4" : "ipv6",
                                  types.at(word(bytes, at + 24))}] = word(bytes, at + 32);
            }
        }
        const auto bytes = TestSupport::fileBytes(
            fmt::format("{}/mpls/rsvp/errorCounters/{}ErrorCount/slots", root, direction));
        for (std::size_t slot = 0; slot < word(bytes, 580); ++slot) {
            const std::size_t at = 600 + 24 + 24 * slot;
            if ((word(bytes, at + 8) & 1U) == 0) continue;
            figures.errors[{direction, kinds.at(bytes.at(at + 16))}] = word(bytes, at + 20);
        }
    }
    EXPECT_EQ(figures, reported);
}

TEST_F(Tool, InterfacesKeepTheirIdentifiers) {
    const auto interfaces = [this] {
        const auto bytes = TestSupport::fileBytes(root + "/interfaces");
        return json::parse(bytes.begin(), bytes.end()).at("interfaces");
    };
    const std::string b = write("b.pcap", sample(24));
    const std::string a = write("a.pcap", sample(5000));
    const std::string c = write("c.pcap", sample(24));
    agent({"--pcap", b});
    agent({"--pcap", a, "--pcap", c, "--pcap", b});
    agent({"--pcap", c, "--pcap", a});
    EXPECT_EQ(interfaces(), json::parse(R"([{"id": 1, "name": "b"}, {"id": 2, "name": "a"},
                                            {"id": 3, "name": "c"}])"));
    for (const auto& [row, count] : held().messages) {
        EXPECT_EQ(std::get<0>(row), "a");
    }
}

TEST_F(Tool, TracesShowOnTheErrorStreamAlone) {
    const std::string rx = "mpls.rsvp.messageCounters.rxIpv4Count";
    const std::string attached = " 1 VeskWriter Vesk/VeskWriter.attach:";
    const std::string none = write("none.pcap", sample(24));
    const auto traced = [&](std::vector<std::string> traces) {
        traces.insert(traces.end(), {"--pcap", none, "--json"});
        const Outcome run = agent(traces);
        EXPECT_EQ(run.code, 0);
        EXPECT_TRUE(json::accept(run.out));
        return run.err;
    };
    EXPECT_EQ(traced({}), "");
    const std::string all = traced({"--trace", "*=1,2"});
    const auto has = [](const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    };
    EXPECT_TRUE(has(all, rx + attached) && has(all, "txErrorCount" + attached)) << all;
    EXPECT_TRUE(has(all, rx + " 2 SlotWriterTable Vesk/SlotWriter.attach:"));
    EXPECT_FALSE(has(all, rx + " 5 "));
    const std::string one = traced({"--trace", rx + "=all"});
    EXPECT_TRUE(has(one, rx + attached) && has(one, rx + " 5 "));
    EXPECT_FALSE(has(one, "txErrorCount"));
    EXPECT_FALSE(has(traced({"--trace", "*=1", "--trace", rx + "=none"}), rx));
}

} // namespace
} // namespace ToolTest
