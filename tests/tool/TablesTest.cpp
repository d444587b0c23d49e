// The tool beside a living agent, after a killed one, and on tables that are not what they should
// be.

#include "Tool.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace ToolTest {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr int kFailed = 1;
constexpr int kNoTable = 3;
constexpr int kCorrupt = 4;

struct Tables : Tool {
    /// An agent that stays; its report goes to `report()`.
    pid_t stay() {
        const pid_t pid = fork();
        if (pid == 0) {
            if (std::freopen(reportPath.c_str(), "w", stdout) == nullptr) _exit(126);
            execl(RSVPVESK_TOOL, "rsvp-vesk", "--root", root.c_str(), "--json", "agent", "--stay",
                  "--pcap", kSample.c_str(), "--local", "02:00:5e:10:00", nullptr);
            _exit(127);
        }
        // The last table is there, so all are.
        for (int i = 0; i < 500 && !fs::exists(last + "/ravo"); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return pid;
    }
    static int end(pid_t pid, int signal) {
        ::kill(pid, signal);
        int status = 0;
        waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }
    Outcome inspect(const std::string& table = "") const {
        std::vector<std::string> arguments{"--root", root, "--json", "inspect"};
        if (!table.empty()) arguments.push_back(table);
        return tool(arguments);
    }
    Outcome clean() const { return tool({"--root", root, "clean"}); }

    std::map<std::string, std::vector<unsigned char>> bytes() const {
        std::map<std::string, std::vector<unsigned char>> all;
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            if (entry.is_regular_file()) {
                all[entry.path()] = TestSupport::fileBytes(entry.path());
            }
        }
        return all;
    }

    const std::string last = root + "/mpls/rsvp/errorCounters/txErrorCount";
    const std::string first = root + "/mpls/rsvp/messageCounters/rxIpv4Count";
    const std::string reportPath = temp.path() + "/report";
};

TEST_F(Tables, BesideALivingAgent) {
    const pid_t pid = stay();
    const auto before = bytes();
    const std::string refusal = fmt::format("its writer is rsvp-vesk (process {})", pid);
    for (const auto& more :
         {std::vector<std::string>{"--pcap", kSample}, {"--fresh", "--pcap", kSample}}) {
        const Outcome second = agent(more);
        EXPECT_EQ(second.code, kFailed);
        EXPECT_THAT(second.err, HasSubstr(refusal));
    }
    const Outcome cleaned = clean();
    EXPECT_EQ(cleaned.code, kFailed);
    EXPECT_THAT(cleaned.err, HasSubstr(refusal));
    const Outcome seen = inspect();
    EXPECT_EQ(seen.code, 0) << seen.out;
    for (const json& table : json::parse(seen.out)) {
        EXPECT_TRUE(table.at("writerAlive"));
        EXPECT_THAT(table.at("owner").get<std::string>(),
                    testing::StartsWith(fmt::format("rsvp-vesk {}-", pid)));
    }
    EXPECT_TRUE(bytes() == before);
    EXPECT_EQ(end(pid, SIGTERM), 0);
    EXPECT_EQ(figuresOf(json::parse(std::ifstream(reportPath))), sampleFigures());
    EXPECT_FALSE(json::parse(inspect().out).at(0).at("writerAlive"));
    EXPECT_EQ(held(), sampleFigures());
}

TEST_F(Tables, AreShownBySomebodyElse) {
    const auto show = [this](std::vector<std::string> what) {
        what.insert(what.begin(), {"--root", root, "show"});
        return tool(what);
    };
    const auto shown = [&] {
        return figuresOf({{"messages", json::parse(show({"messages", "--json"}).out)},
                          {"errors", json::parse(show({"errors", "--json"}).out)}});
    };
    for (const char* const what : {"messages", "errors", "tables"}) {
        const Outcome none = show({what, "--json"});
        EXPECT_TRUE(none.code == kNoTable && none.out.empty()) << none.out;
        EXPECT_THAT(none.err, HasSubstr(root));
    }
    EXPECT_FALSE(fs::exists(root));
    // Begun before the agent, in another process: it prints what is there when the tables are.
    Outcome waiting{};
    std::thread waits([&] { waiting = show({"errors", "--wait", "--json"}); });
    const pid_t pid = stay();
    waits.join();
    EXPECT_EQ(waiting.code, 0) << waiting.err;
    for (int i = 0; i < 200 && shown() != sampleFigures(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    const auto before = bytes();
    EXPECT_EQ(shown(), sampleFigures());
    const Outcome beside = show({"messages"});
    EXPECT_TRUE(beside.code == 0 && beside.err.empty()) << beside.err;
    EXPECT_TRUE(bytes() == before);
    EXPECT_EQ(tool({"--root", root, "snapshot"}).code, 0);
    const json tables = json::parse(show({"tables", "--json"}).out);
    EXPECT_EQ(tables.size(), 14U);
    for (const json& table : tables) {
        const bool counted = table.at("table").get<std::string>().find("Snapshot") + 1 == 0;
        EXPECT_EQ(table.at("writerAlive"), counted);
    }
    EXPECT_EQ(end(pid, SIGTERM), 0);

    EXPECT_EQ(shown(), sampleFigures());
    EXPECT_THAT(show({"errors"}).err, HasSubstr("has ended"));
    EXPECT_EQ(show({"messages", "--relative", "--json"}).out, "[]\n");
    agent({"--pcap", kSample});
    EXPECT_EQ(figuresOf({{"messages", json::parse(show({"messages", "--relative", "--json"}).out)},
                         {"errors", json::parse(show({"errors", "--relative", "--json"}).out)}}),
              sampleFigures());
    EXPECT_EQ(show({"messages", "--interface", "two-links"}).out, show({"messages"}).out);
    const Outcome other = show({"messages", "--interface", "et9"});
    EXPECT_TRUE(other.code == kFailed && other.out.empty());
    EXPECT_THAT(other.err, HasSubstr("\"et9\""));

    // Names that cannot be read are no reason to keep the counts back.
    std::ofstream(root + "/interfaces") << "{";
    const Outcome nameless = show({"messages", "--json"});
    EXPECT_EQ(nameless.code, 0);
    EXPECT_THAT(nameless.err, HasSubstr("not a map of interfaces"));
    EXPECT_EQ(json::parse(nameless.out).size(), 48U);
    // Corruption that an attach does not see, in the snapshot and in the counts.
    EXPECT_EQ(tool({"--root", root, "snapshot"}).code, 0);
    const std::string counts = root + "/mpls/rsvp/messageCounters/rxIpv4Count/buckets";
    const std::string old = root + "/mpls/rsvp/messageCountersSnapshot/rxIpv4Count/buckets";
    TestSupport::patchWord(old, 28, 0x7FFFFFF0);
    EXPECT_EQ(show({"messages", "--relative"}).code, kCorrupt);
    TestSupport::patchWord(counts, 28, 0x7FFFFFF0);
    const auto snapshot = TestSupport::fileBytes(old);
    EXPECT_EQ(tool({"--root", root, "snapshot"}).code, kCorrupt);
    EXPECT_TRUE(TestSupport::fileBytes(old) == snapshot);
    TestSupport::patchWord(last + "/buckets", 0, 0);
    EXPECT_EQ(show({"errors"}).code, kCorrupt);
    fs::remove_all(last);
    const Outcome partly = show({"errors"});
    EXPECT_EQ(partly.code, kNoTable);
    EXPECT_THAT(partly.err, HasSubstr("no table " + last));
    EXPECT_THAT(partly.out, HasSubstr("pktParserBadMsgChecksumErrorType"));
}

TEST_F(Tables, AfterAKilledAgentNothingIsLost) {
    EXPECT_EQ(end(stay(), SIGKILL), 1000 + SIGKILL);
    EXPECT_FALSE(fs::is_empty(root + "/.ploxet"));
    EXPECT_EQ(inspect().code, 0);
    EXPECT_EQ(agent({"--pcap", kSample}).code, 0);
    EXPECT_EQ(held(), sampleFigures(2));
    EXPECT_EQ(agent({"--fresh", "--pcap", kSample}).code, 0);
    EXPECT_EQ(held(), sampleFigures());
    EXPECT_EQ(clean().code, 0);
    EXPECT_TRUE(fs::is_empty(root));
    EXPECT_EQ(clean().code, 0);
}

TEST_F(Tables, AreJudgedWithoutChangingAByte) {
    agent({"--pcap", kSample});
    const auto verdicts = [this] {
        const auto before = bytes();
        const Outcome run = inspect();
        EXPECT_TRUE(bytes() == before);
        std::map<std::string, std::string> corrupt;
        for (const json& table : json::parse(run.out)) {
            if (!table.at("sound")) corrupt[table.at("folder")] = table.at("corruption");
        }
        EXPECT_EQ(run.code, corrupt.empty() ? 0 : kCorrupt);
        return corrupt;
    };
    const json sound = json::parse(inspect().out);
    ASSERT_EQ(sound.size(), 8U);
    for (const json& table : sound) {
        EXPECT_EQ(table.at("entries").get<std::uint64_t>() +
                      table.at("freeBytes").get<std::uint64_t>() /
                          table.at("slotBytes").get<std::uint64_t>(),
                  table.at("slots"));
        std::uint64_t entries = 0;
        const json& lengths = table.at("chainLengths");
        for (std::size_t length = 0; length < lengths.size(); ++length) {
            entries += length * lengths[length].get<std::uint64_t>();
        }
        EXPECT_EQ(entries, table.at("entries"));
        EXPECT_EQ(table.at("longestChain").get<std::size_t>() + 1, lengths.size());
    }
    EXPECT_TRUE(verdicts().empty());
    const auto spoiled = [&](const std::string& path, std::uint64_t offset, std::uint32_t word) {
        const auto kept = TestSupport::fileBytes(path);
        TestSupport::patchWord(path, offset, word);
        const auto found = verdicts();
        TestSupport::patchFile(path, 0, kept.data(), kept.size());
        return found.size() == 1 ? found.begin()->first + ": " + found.begin()->second
                                 : fmt::format("{} verdicts", found.size());
    };
    EXPECT_EQ(spoiled(first + "/slots", 556, 99),
              first + ": mismatch header->occupiedSlots:99 count:12");
    EXPECT_EQ(spoiled(first + "/slots", 548, 0x10000),
              first + ": bad critical section runtimeFlags:1");
    EXPECT_THAT(spoiled(last + "/buckets", 0, 7),
                HasSubstr(last + ": bad bucket header magic:0x7"));
    EXPECT_THAT(spoiled(last + "/owner", 40, 7), HasSubstr(last + ": owner file: bad crc"));
    EXPECT_THAT(spoiled(last + "/ravo", 4, 7), HasSubstr(last + ": no identity in the file ravo"));
    fs::resize_file(last + "/slots", 100);
    EXPECT_THAT(verdicts()[last], HasSubstr("unknown type of values"));
    fs::remove(last + "/slots");
    EXPECT_EQ(verdicts()[last], "the file slots is missing");
    EXPECT_EQ(inspect("mpls/rsvp/messageCounters/rxIpv4Count").code, 0);
    const Outcome absent = inspect("mpls");
    EXPECT_EQ(absent.code, kNoTable);
    EXPECT_EQ(absent.err, "rsvp-vesk: no table mpls below " + root + "\n");
}

} // namespace
} // namespace ToolTest
