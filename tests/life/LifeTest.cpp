// What processes may do to each other's tables: one writer at a time, whoever dies, and nothing
// lost that was whole.

#include "Environment.h"
#include "MoxVesk/MountInfo.h"
#include "Pello/Loop.h"
#include "Pello/Time.h"
#include "Process.h"
#include "Rsvp/MessageCounterColl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

/// A process that owns tables below a root.
struct Process : TestSupport::Process {
    explicit Process(const std::string& root)
        : TestSupport::Process({LIFE_PROCESS, root}) {}
};

/// Every file below a folder with its bytes; sockets with none.
std::map<std::string, std::vector<unsigned char>> contents(const std::string& root) {
    std::map<std::string, std::vector<unsigned char>> files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        files[entry.path()] = entry.is_regular_file() ? TestSupport::fileBytes(entry.path())
                                                      : std::vector<unsigned char>();
    }
    return files;
}

std::vector<std::string> wordsOf(const std::string& answer) {
    std::istringstream in(answer);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

class Life : public testing::Test {
  protected:
    TestSupport::TempRoot root;
};

TEST_F(Life, ASecondWriterIsRefusedAndChangesNothing) {
    Process first(root.path());
    EXPECT_THAT(first.tell("mount"), StartsWith("ok kept 0 0 "));
    EXPECT_EQ(first.tell("count 30000"), "ok 30000");
    const auto before = contents(root.path());
    const std::string refusal = fmt::format("its writer is lifeProcess (process {})", first.pid());
    const auto expectRefused = [&](const char* command) {
        Process second(root.path());
        const auto began = std::chrono::steady_clock::now();
        EXPECT_THAT(second.tell(command), testing::AllOf(StartsWith("error "), HasSubstr(refusal)))
            << command;
        EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(5));
    };
    expectRefused("mount");
    expectRefused("fresh");
    EXPECT_TRUE(contents(root.path()) == before);
    EXPECT_EQ(first.tell("validate"), "ok sound");
    // The lock of a living writer may be removed by a hand that means well.
    fs::remove_all(root.path() + "/.locks");
    expectRefused("mount");
    expectRefused("fresh");
    // Detached, it stands in nobody's way.
    EXPECT_EQ(first.tell("unmount"), "ok ");
    Process second(root.path());
    EXPECT_THAT(second.tell("mount"), StartsWith("ok kept 30000 30000 "));
    EXPECT_THAT(first.tell("mount"),
                HasSubstr(fmt::format("lifeProcess (process {})", second.pid())));
}

TEST_F(Life, AKilledWriterLeavesItsTablesToTheNext) {
    std::string identity;
    pid_t child = 0;
    {
        Process first(root.path());
        const std::string mounted = first.tell("mount");
        EXPECT_THAT(mounted, HasSubstr(fmt::format("lifeProcess:{}", first.pid())));
        identity = wordsOf(mounted).at(4);
        EXPECT_EQ(first.tell("count 25000"), "ok 25000");
        child = std::stoi(first.tell("fork").substr(3)); // holds what it inherits
    }
    Process second(root.path());
    const std::string mounted = second.tell("mount");
    EXPECT_THAT(mounted, StartsWith("ok kept 25000 25000 "));
    EXPECT_EQ(wordsOf(mounted).at(4), identity);
    EXPECT_EQ(second.tell("count 5"), "ok 25005");
    ASSERT_EQ(::kill(child, 0), 0) << "the child was to live until here";
    ::kill(child, SIGKILL);
}

TEST_F(Life, KilledAtAnyMomentTheTablesAreKeptOrSaidToBeLost) {
    std::mt19937 random(TestSupport::seedFor("kills", 4711));
    const int rounds = static_cast<int>(60 * TestSupport::lengthFactor());
    std::uint64_t counted = 0;
    int kept = 0;
    int lost = 0;
    for (int round = 0; round < rounds; ++round) {
        Process agent(root.path());
        const std::string mounted = agent.tell("mount");
        ASSERT_THAT(mounted, StartsWith("ok ")) << mounted;
        const bool isKept = wordsOf(mounted).at(1) == "kept";
        // Kept tables have all that was there before.
        if (isKept) {
            EXPECT_GE(std::stoull(wordsOf(mounted).at(2)), counted);
        }
        (isKept ? kept : lost) += 1;
        EXPECT_EQ(agent.tell("validate"), "ok sound");
        counted = std::stoull(agent.tell("count 1").substr(3));
        agent.send("count 100000000");
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        agent.kill(SIGKILL);
    }
    std::cout << "killed " << rounds << " times: kept " << kept << ", said to be lost " << lost
              << "\n";
    EXPECT_GT(kept, 0);
}

TEST_F(Life, CleaningUpRemovesAllFilesOfATable) {
    Process agent(root.path());
    agent.tell("mount");
    ASSERT_TRUE(fs::exists(root.file("m/rxIpv4Count", "slots")));
    // As from a table's life before.
    std::ofstream(root.file("m/rxIpv4Count", "corruption-detected")) << "x";
    std::ofstream(root.file("m/rxIpv4Count", "clone-control")) << "x";
    EXPECT_EQ(agent.tell("cleanup"), "ok ");
    EXPECT_TRUE(fs::is_empty(root.path() + "/m/rxIpv4Count"));
    EXPECT_TRUE(fs::exists(root.file("m/rxIpv6Count", "slots")));
}

/// Takes every inotify instance that this user may have.
struct NoWatches {
    NoWatches() {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        for (int fd = 0; (fd = inotify_init1(IN_CLOEXEC)) >= 0;) {
            fds.push_back(fd);
        }
        EXPECT_EQ(errno, EMFILE);
    }
    ~NoWatches() {
        for (const int fd : fds) {
            close(fd);
        }
    }
    NoWatches(const NoWatches&) = delete;
    NoWatches& operator=(const NoWatches&) = delete;

    std::vector<int> fds;
};

class Follow : public Life, public testing::WithParamInterface<bool> {
  protected:
    Follow() {
        if (GetParam()) noWatches = std::make_unique<NoWatches>();
    }
    std::unique_ptr<NoWatches> noWatches;
};
INSTANTIATE_TEST_SUITE_P(ByWatchOrByPolling, Follow, testing::Bool());

TEST_P(Follow, AReaderIsOnTheTableThatTheNameLeadsTo) {
    using Rsvp::Vesk::MessageCounterColl;
    const std::string base = root.path() + "/base";
    Mem::RootPath::baseIs(base);
    MoxVesk::Mounter mounter;
    const auto reader = MessageCounterColl::MessageCounterCollIs("m");
    mounter.mount(reader, "m", MessageCounterColl::writerMountInfo(), Vesk::VeskType::reader);
    EXPECT_FALSE(fs::exists(base));
    std::string figures;
    // The counts of the interfaces that the writer counts on, as far as the front is attached.
    const auto counted = [&] {
        std::uint64_t sum = 0;
        using Map = std::remove_reference_t<decltype(reader->rxIpv4CountMap())>;
        for (Map::IteratorConst each(&reader->rxIpv4CountMap()); each.valid(); each.advance()) {
            sum += each->count();
        }
        return sum;
    };
    const auto follows = [&](const std::string& what, const auto& done) {
        const double began = Pello::time();
        while (!done() && Pello::time() < began + 10) {
            Pello::Loop::ofThisThread()->runOnce(10);
        }
        EXPECT_TRUE(done()) << what;
        figures += fmt::format(" {} {:.0f} ms", what, (Pello::time() - began) * 1e3);
    };
    const auto sees = [&](const std::string& what, std::uint64_t sum) {
        follows(what, [&] { return reader->rxIpv4CountMap().ready() && counted() == sum; });
    };
    auto writer = std::make_unique<Process>(base);
    EXPECT_THAT(writer->tell("mount"), StartsWith("ok kept"));
    sees("attached", 0);
    EXPECT_EQ(writer->tell("count 300"), "ok 300");
    EXPECT_EQ(counted(), 300U);
    // Another writer of the same files: no reason to leave them.
    const SharedMem::RavoId id = reader->rxIpv4CountMap().ravoId();
    writer = std::make_unique<Process>(base);
    EXPECT_THAT(writer->tell("mount"), StartsWith("ok kept 300"));
    EXPECT_EQ(writer->tell("count 50"), "ok 350");
    EXPECT_EQ(counted(), 350U);
    // Formatted anew.
    writer.reset();
    TestSupport::patchWord(base + "/m/rxIpv4Count/owner", 0, 0);
    writer = std::make_unique<Process>(base);
    EXPECT_THAT(writer->tell("mount"), StartsWith("ok lost 0"));
    EXPECT_EQ(writer->tell("count 7"), "ok 7");
    sees("re-formatted", 7);
    EXPECT_NE(reader->rxIpv4CountMap().ravoId(), id);
    // Removed, and made again.
    EXPECT_THAT(writer->tell("cleanup"), StartsWith("ok"));
    follows("left", [&] { return !reader->rxIpv4CountMap().ready(); });
    EXPECT_THAT(writer->tell("unmount"), StartsWith("ok"));
    EXPECT_THAT(writer->tell("mount"), StartsWith("ok"));
    EXPECT_EQ(writer->tell("count 8"), "ok 8");
    sees("made again", 8);
    // Gone with everything above it.
    fs::rename(base, root.path() + "/aside");
    writer = std::make_unique<Process>(base);
    EXPECT_THAT(writer->tell("mount"), StartsWith("ok kept 0"));
    EXPECT_EQ(writer->tell("count 9"), "ok 9");
    sees("replaced", 9);
    // Nothing but the writer's files, and no complaint.
    for (const std::string& folder : {base, root.path() + "/aside"}) {
        for (const auto& [path, bytes] : contents(folder)) {
            EXPECT_THAT(path, testing::Not(HasSubstr("corruption-detected")));
        }
    }
    std::cout << (noWatches ? "polling:" : "watching:") << figures << '\n';
}

} // namespace
