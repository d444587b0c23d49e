// What the agent counts and prints, and that it lasts.

#include "Tool.h"

#include <filesystem>
#include <sstream>

namespace ToolTest {
namespace {

TEST_F(Tool, CountsTheSampleAndGoesOnFromTheFiles) {
    // Global options stand before the command or after it.
    const Outcome first =
        tool({"--json", "--root", root, "agent", "--pcap", kSample, "--local", "02:00:5e:10:00"});
    EXPECT_EQ(first.code, 0);
    EXPECT_EQ(first.err, "");
    EXPECT_EQ(json::parse(first.out), sampleReport());
    const Outcome again =
        tool({"agent", "--pcap", kSample, "--local", "02:00:5e:10:00", "--root", root, "--json"});
    EXPECT_EQ(figuresOf(json::parse(again.out)), sampleFigures(2));
    EXPECT_EQ(json::parse(again.out).at("frames"), sampleReport().at("frames"));
    EXPECT_EQ(held(), sampleFigures(2));
}

TEST_F(Tool, TheTextReportSaysTheSame) {
    const Outcome run = agent({"--pcap", kSample});
    EXPECT_EQ(run.code, 0);
    Figures figures;
    std::vector<std::string> folders;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream in(line);
        const std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
        const bool figure =
            !words.empty() && words.back().find_first_not_of("0123456789") == std::string::npos;
        if (figure) {
            figures[fmt::format("{}", fmt::join(words.begin(), words.end() - 1, " "))] =
                std::stoull(words.back());
        } else if (words.size() == 1 && line.find('/') != std::string::npos) {
            EXPECT_TRUE(std::filesystem::exists(root + "/" + words[0] + "/slots")) << line;
            folders.push_back(line.substr(line.rfind('/') + 1));
        }
    }
    EXPECT_EQ(figures, sampleFigures());
    EXPECT_NE(run.out.find("\nframes 2400: 2307 with RSVP, 84 ignored, 9 cut short by the "
                           "capture\n"),
              std::string::npos);
    EXPECT_EQ(folders, (std::vector<std::string>{"rxIpv4Count", "rxIpv6Count", "txIpv4Count",
                                                 "txIpv6Count", "rxErrorCount", "txErrorCount",
                                                 "sessionHistory", "spHistory"}));
}

TEST_F(Tool, InterfacesKeepTheirIdentifiers) {
    const auto interfaces = [this] {
        const auto bytes = TestSupport::fileBytes(root + "/interfaces");
        return json::parse(bytes.begin(), bytes.end()).at("interfaces");
    };
    const std::string b = write("b.pcap", sample(5000));
    const std::string a = write("a.pcap", sample(5000));
    const std::string c = write("c.pcap", sample(5000));
    agent({"--pcap", b});
    agent({"--pcap", a, "--pcap", c, "--pcap", b});
    agent({"--pcap", c, "--pcap", a});
    EXPECT_EQ(interfaces(), json::parse(R"([{"id": 1, "name": "b"}, {"id": 2, "name": "a"},
                                            {"id": 3, "name": "c"}])"));
    for (const auto& [row, count] : held()) {
        const bool known =
            row.size() > 1 && std::string("abc").find(row[0]) != std::string::npos && row[1] == ' ';
        EXPECT_TRUE(known || row.find("ErrorType ") != std::string::npos) << row;
    }
}

/// A file may be called anything, and so may an interface.
TEST_F(Tool, NamesOfAnyOctetsStayApartAndLast) {
    const std::vector<std::string> names = {"a\xff", "a\xfe", "a\xc2\x9b", "z\x1b[2Jz", "\xc3\xa9"};
    std::vector<std::string> arguments;
    for (const std::string& name : names) {
        arguments.insert(arguments.end(), {"--pcap", write(name + ".pcap", sample(5000))});
    }
    for (int run = 0; run < 3; ++run) {
        const Outcome outcome = agent(arguments);
        EXPECT_EQ(outcome.code, 1) << outcome.err; // each capture breaks off
        EXPECT_EQ(outcome.err.find("interfaces"), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.out.find('\x1b'), std::string::npos);
    }
    const auto bytes = TestSupport::fileBytes(root + "/interfaces");
    const auto interfaces = json::parse(bytes.begin(), bytes.end()).at("interfaces");
    ASSERT_EQ(interfaces.size(), names.size());
    EXPECT_EQ(interfaces[0].at("name"), "a\\xff");
    EXPECT_EQ(interfaces[2].at("name"), "a\\xc2\\x9b");
    EXPECT_EQ(interfaces[4].at("name"), "\xc3\xa9");
}

TEST_F(Tool, TracesShowOnTheErrorStreamAlone) {
    const std::string rx = "mpls.rsvp.messageCounters.rxIpv4Count";
    const std::string tx = "mpls.rsvp.errorCounters.txErrorCount";
    const std::string attached = " 1 VeskWriter Vesk/VeskWriter.attach:";
    const std::string slots = " 2 SlotWriterTable Vesk/SlotWriter.attach:";
    const std::string none = write("none.pcap", sample(24));
    struct Case {
        std::vector<std::string> traces;
        std::vector<std::string> shown;
        std::vector<std::string> hidden;
    };
    const Case cases[] = {{{}, {}, {"m"}},
                          {{"*=1,2"}, {rx + attached, tx + attached, rx + slots}, {rx + " 5 "}},
                          {{rx + "=all"}, {rx + attached, rx + " 5 "}, {tx}},
                          {{"*=1", rx + "=none"}, {tx + attached}, {rx, slots}}};
    for (const Case& each : cases) {
        std::vector<std::string> arguments{"--pcap", none, "--json"};
        for (const std::string& trace : each.traces) {
            arguments.insert(arguments.end(), {"--trace", trace});
        }
        const Outcome run = agent(arguments);
        EXPECT_EQ(run.code, 0);
        EXPECT_TRUE(json::accept(run.out));
        for (const std::string& text : each.shown) {
            EXPECT_NE(run.err.find(text), std::string::npos) << text << " in\n" << run.err;
        }
        for (const std::string& text : each.hidden) {
            EXPECT_EQ(run.err.find(text), std::string::npos) << text << " in\n" << run.err;
        }
    }
}

} // namespace
} // namespace ToolTest
