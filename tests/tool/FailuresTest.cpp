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
    const std::string help = "\nRun with --help for more information.\n";
    const std::string levels = "\": levels are numbers from 0 to 15" + help;
    const std::string agent = "agent --pcap " + kSample;
    const std::string says = "rsvp-vesk: ";
    struct Case {
        std::string arguments;
        int code;
        std::string text; ///< "*" ends a message of which only the beginning counts
    };
    const Case cases[] = {
        {"", kUsage, "A subcommand is required" + help},
        {"agent", kUsage, "--pcap is required" + help},
        {agent + " --bogus", kUsage, "The following argument was not expected: --bogus" + help},
        {agent + " --trace x", kUsage, "--trace: \"x\": HANDLE=LEVELS expected" + help},
        {agent + " --trace =1", kUsage, "--trace: \"=1\": HANDLE=LEVELS expected" + help},
        {agent + " --trace a=16", kUsage, "--trace: \"a=16" + levels},
        {agent + " --trace a=", kUsage, "--trace: \"a=" + levels},
        {agent + " --trace a=-1", kUsage, "--trace: \"a=-1" + levels},
        {agent + " --trace a=1,,2", kUsage, "--trace: \"a=1,,2" + levels},
        {agent + " --trace a=1;2", kUsage,
         "--trace: \"a=1;2\": levels are separated by commas" + help},
        {agent + " --local zz", kUsage, says + "bad local address 'zz': *"},
        {"agent --pcap " + absent, kFailed,
         says + absent + ": cannot open: No such file or directory\n"},
        {"agent --pcap " + temp.path(), kFailed,
         says + temp.path() + ": cannot read: Is a directory\n"},
        {"agent --pcap " + empty, kFailed, says + empty + ": cannot read: the file is empty\n"},
        {"agent --pcap " + garbled, kFailed, says + garbled + ": not a readable capture: *"},
        {"agent --pcap " + strange, kFailed, says + strange + ": link type 147 *"},
        {agent + " --root " + file, kFailed,
         says + "cannot create folder " + file + ": Not a directory\n"},
        {agent + " --root /proc/x", kFailed,
         says + "cannot create folder /proc/x: No such file or directory\n"}};
    for (const Case& each : cases) {
        const bool rooted = each.arguments.find("--root") != std::string::npos;
        std::istringstream in((rooted ? "" : "--root " + root + " ") + each.arguments);
        const Outcome run = tool({std::istream_iterator<std::string>(in), {}});
        EXPECT_EQ(run.code, each.code) << each.arguments;
        EXPECT_EQ(run.out, "") << each.arguments;
        const bool part = each.text.ends_with('*');
        EXPECT_EQ(part ? run.err.substr(0, each.text.size() - 1) + "*" : run.err, each.text);
    }
    EXPECT_FALSE(fs::exists(root));
    EXPECT_EQ(fs::file_size(file), 1U);
    const Outcome answer = tool({"agent", "--help"});
    EXPECT_EQ(answer.code, 0);
    EXPECT_NE(answer.out.find("rsvp-vesk agent --pcap trace.pcap"), std::string::npos);
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
        EXPECT_EQ(figuresOf(json::parse(run.out)), sampleFigures(goodFirst ? 1 : 2));
    }
}

TEST_F(Tool, AReportThatNobodyCanReadIsAFailure) {
    for (const Outcome& run : {agent({"--pcap", kSample}, {STDOUT_FILENO}),
                               agent({"--pcap", kSample}, {}, "/dev/full")}) {
        EXPECT_EQ(run.code, kFailed);
        EXPECT_EQ(run.err, "rsvp-vesk: cannot write the report to standard output\n");
    }
    // Files get the lowest free numbers: none of a table's may become a stream that is printed to.
    const std::vector<std::vector<int>> streams{{0}, {2}, {0, 1}, {0, 2}, {1, 2}, {0, 1, 2}};
    for (const std::vector<int>& closed : streams) {
        agent({"--pcap", kSample, "--trace", "*=all"}, closed);
    }
    EXPECT_EQ(held(), sampleFigures(2 + streams.size()));
}

TEST_F(Tool, CorruptInterfaceMapStaysAsItIs) {
    for (const char* const text :
         {"", "{", "[]", "{}", R"({"interfaces": {}})", R"({"interfaces": [{"id": 1}]})",
          R"({"interfaces": [{"id": "1", "name": "x"}]})",
          R"({"interfaces": [{"id": -1, "name": "x"}]})",
          R"({"interfaces": [{"id": 0, "name": "x"}]})",
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
    for (const auto& [row, count] : figuresOf(json::parse(run.out))) {
        const bool anew = row.find(" tx ipv6 ") != std::string::npos;
        EXPECT_EQ(count, sampleFigures(anew ? 1 : 2).at(row)) << row;
    }
}

TEST_F(Tool, AFullFileSystemIsAMessageAndLeavesNothing) {
    constexpr std::size_t kPages = 256;
    TestSupport::SmallFileSystem small(temp.path(), kPages);
    if (!small.problem().empty()) GTEST_SKIP() << small.problem();
    root = small.path() + "/root";
    const std::string table = root + "/mpls/rsvp/messageCounters/rxIpv4Count";
    small.leaveFree(0);
    const Outcome run = agent({"--pcap", kSample});
    EXPECT_EQ(run.code, kFailed);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "rsvp-vesk: cannot write " + table + "/owner: No space left on device\n");
    EXPECT_FALSE(fs::exists(root + "/mpls"));
    // The agent needs room for its tables and for what they hold; it never does with less.
    constexpr std::size_t kOfTables = 41; // eight of four files and a folder, and the map
    constexpr std::size_t kStep = 3;
    std::size_t free = 1;
    for (; free < kPages; free += kStep) {
        small.leaveFree(free);
        const Outcome later = agent({"--json", "--pcap", kSample});
        if (later.code == 0) break;
        EXPECT_EQ(later.code, kFailed) << free;
        EXPECT_EQ(later.out, "");
        EXPECT_NE(later.err.find("No space left on device"), std::string::npos) << later.err;
        fs::remove_all(root);
    }
    EXPECT_GT(free, kOfTables);
    EXPECT_LT(free, kPages);
}

} // namespace
} // namespace ToolTest
