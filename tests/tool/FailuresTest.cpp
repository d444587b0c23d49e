// What the tool says and how it exits when something is wrong, and what it leaves alone then.

#include "SmallFileSystem.h"
#include "Tool.h"

#include <filesystem>
#include <sstream>

namespace ToolTest {
namespace {

namespace fs = std::filesystem;

constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kCorrupt = 4;

TEST_F(Tool, SaysWhatIsWrongAndTouchesNothing) {
    const std::string garbled = write("garbled.pcap", std::string(300, 'g'));
    const std::string empty = write("empty.pcap", "");
    std::string header = sample(24);
    header[20] = static_cast<char>(147);
    const std::string strange = write("strange.pcap", header);
    const std::string file = write("file", "x");
    const std::string absent = temp.path() + "/absent.pcap";
    // Arguments, exit code and message; "*" ends a message of which only the beginning counts.
    const auto fails = [this](const std::string& words, int code, const std::string& text) {
        std::istringstream in(
            words.find("--root") == std::string::npos ? "--root " + root + " " + words : words);
        const Outcome run = tool({std::istream_iterator<std::string>(in), {}});
        EXPECT_EQ(run.code, code) << words;
        EXPECT_EQ(run.out, "") << words;
        const bool part = text.ends_with('*');
        EXPECT_EQ(part ? run.err.substr(0, text.size() - 1) + "*" : run.err, text) << words;
    };
    const auto usage = [&fails](const std::string& words, const std::string& text) {
        fails(words, kUsage, text + "\nRun with --help for more information.\n");
    };
    const std::string agent = "agent --pcap " + kSample;
    usage("", "A subcommand is required");
    usage("agent", "--pcap is required");
    usage(agent + " --bogus", "The following argument was not expected: --bogus");
    usage(agent + " --trace x", "--trace: \"x\": HANDLE=LEVELS expected");
    usage(agent + " --trace =1", "--trace: \"=1\": HANDLE=LEVELS expected");
    for (const char* const levels : {"16", "", "-1", "1,", "1,,2"}) {
        usage(agent + " --trace a=" + levels,
              fmt::format("--trace: \"a={}\": levels are numbers from 0 to 15", levels));
    }
    usage(agent + " --trace a=1;2", "--trace: \"a=1;2\": levels are separated by commas");
    const std::string says = "rsvp-vesk: ";
    fails(agent + " --local zz", kUsage, says + "bad local address 'zz': *");
    fails("agent --pcap " + absent, kFailed,
          says + absent + ": cannot open: No such file or directory\n");
    fails("agent --pcap " + temp.path(), kFailed,
          says + temp.path() + ": cannot read: Is a directory\n");
    fails("agent --pcap " + empty, kFailed, says + empty + ": cannot read: the file is empty\n");
    fails("agent --pcap " + garbled, kFailed, says + garbled + ": not a readable capture: *");
    fails("agent --pcap " + strange, kFailed, says + strange + ": link type 147 *");
    fails(agent + " --root " + file, kFailed,
          says + "cannot create folder " + file + ": Not a directory\n");
    fails(agent + " --root /proc/x", kFailed,
          says + "cannot create folder /proc/x: No such file or directory\n");
    EXPECT_FALSE(fs::exists(root));
    EXPECT_EQ(fs::file_size(file), 1U);
}

TEST_F(Tool, HelpIsAnAnswer) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--help"}, {"agent", "--help"}}) {
        const Outcome run = tool(arguments);
        EXPECT_EQ(run.code, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_NE(run.out.find("rsvp-vesk agent --pcap trace.pcap"), std::string::npos);
    }
}

TEST_F(Tool, CountsWhatItCouldRead) {
    const std::string cut = write("cut.pcap", sample(sample().size() - 10));
    const Outcome truncated = agent({"--json", "--pcap", cut});
    EXPECT_EQ(truncated.code, kFailed);
    EXPECT_EQ(truncated.err.substr(0, cut.size() + 25), "rsvp-vesk: " + cut + ": record 2400:");
    const json report = json::parse(truncated.out);
    EXPECT_EQ(report.at("frames"), 2399);
    EXPECT_GT(report.at("messages").size(), 40U);
    EXPECT_EQ(report.at("messages")[0].at("interface"), "cut");

    fs::remove_all(root);
    const std::string garbled = write("garbled.pcap", std::string(300, 'g'));
    for (const bool goodFirst : {true, false}) {
        const Outcome run = agent({"--json", "--pcap", goodFirst ? kSample : garbled, "--pcap",
                                   goodFirst ? garbled : kSample});
        EXPECT_EQ(run.code, kFailed);
        EXPECT_EQ(run.err.find("rsvp-vesk: " + garbled + ": not a readable capture: "), 0U);
        EXPECT_EQ(Figures(json::parse(run.out)), Figures(sampleReport()).times(goodFirst ? 1 : 2));
    }
}

TEST_F(Tool, AReportThatNobodyCanReadIsAFailure) {
    const std::string text = "rsvp-vesk: cannot write the report to standard output\n";
    for (const Outcome& run : {agent({"--pcap", kSample}, {STDOUT_FILENO}),
                               agent({"--pcap", kSample}, {}, "/dev/full")}) {
        EXPECT_EQ(run.code, kFailed);
        EXPECT_EQ(run.err, text);
    }
    EXPECT_EQ(held(), Figures(sampleReport()).times(2));
}

TEST_F(Tool, ClosedStreamsLeaveTheTablesAlone) {
    // Files get the lowest free numbers: none of a table's may become a stream that is printed to.
    const std::vector<std::vector<int>> streams{{0}, {1}, {2}, {0, 1}, {0, 2}, {1, 2}, {0, 1, 2}};
    for (const std::vector<int>& closed : streams) {
        agent({"--pcap", kSample, "--trace", "*=all"}, closed);
    }
    EXPECT_EQ(held(), Figures(sampleReport()).times(streams.size()));
}

TEST_F(Tool, CorruptInterfaceMapStaysAsItIs) {
    for (const char* const text :
         {"", "{", "null", "[]", "{}", R"({"interfaces": null})", R"({"interfaces": {}})",
          R"({"interfaces": [5]})", R"({"interfaces": [{"id": 1}]})",
          R"({"interfaces": [{"id": "1", "name": "x"}]})",
          R"({"interfaces": [{"id": -1, "name": "x"}]})",
          R"({"interfaces": [{"id": 0, "name": "x"}]})",
          R"({"interfaces": [{"id": 1.5, "name": "x"}]})",
          R"({"interfaces": [{"id": 18446744073709551615, "name": "x"}]})",
          R"({"interfaces": [{"id": 36893488147419103232, "name": "x"}]})",
          R"({"interfaces": [{"id": 1, "name": "x"}, {"id": 1, "name": "y"}]})",
          R"({"interfaces": [{"id": 1, "name": "x"}, {"id": 2, "name": "x"}]})"}) {
        fs::create_directories(root);
        const std::string path = write("root/interfaces", text);
        const Outcome run = agent({"--json", "--pcap", kSample});
        EXPECT_EQ(run.code, kCorrupt) << text;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.find("rsvp-vesk: " + path + ": "), 0U) << run.err;
        const auto bytes = TestSupport::fileBytes(path);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), text);
    }
}

TEST_F(Tool, ADamagedTableBeginsAnewAndSaysSo) {
    agent({"--pcap", kSample});
    const std::string table = root + "/mpls/rsvp/messageCounters/txIpv6Count";
    TestSupport::patchWord(table + "/slots", 556, 1);
    const Outcome run = agent({"--json", "--pcap", kSample});
    EXPECT_EQ(run.code, 0);
    EXPECT_NE(run.err.find("Vesk " + table +
                           " validation failed: walkedSlots:2 is greater than "
                           "header->occupiedSlots:1"),
              std::string::npos)
        << run.err;
    for (const auto& [row, count] : Figures(json::parse(run.out)).messages) {
        const bool anew = std::get<1>(row) == "tx" && std::get<2>(row) == "ipv6";
        EXPECT_EQ(count, Figures(sampleReport()).messages.at(row) * (anew ? 1 : 2));
    }
}

TEST_F(Tool, AFullFileSystemIsAMessageAndLeavesNothing) {
    TestSupport::SmallFileSystem small(temp.path(), 64);
    if (!small.problem().empty()) GTEST_SKIP() << small.problem();
    root = small.path() + "/root";
    const std::string table = root + "/mpls/rsvp/messageCounters/rxIpv4Count";
    small.leaveFree(0);
    const Outcome run = agent({"--pcap", kSample});
    EXPECT_EQ(run.code, kFailed);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "rsvp-vesk: cannot attach to shmem " + table +
                           "/slots size:3200: fallocate: No space left on device\n");
    EXPECT_FALSE(fs::exists(root + "/mpls"));
    for (std::size_t free = 1; free < 19; ++free) { // six tables of three files, and the map
        small.leaveFree(free);
        const Outcome later = agent({"--json", "--pcap", kSample});
        EXPECT_EQ(later.code, kFailed) << free;
        EXPECT_EQ(later.out, "");
        fs::remove_all(root);
    }
    small.leaveFree(19);
    EXPECT_EQ(agent({"--pcap", kSample}).code, 0);
}

} // namespace
} // namespace ToolTest
