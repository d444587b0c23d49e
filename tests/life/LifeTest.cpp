// What processes may do to each other's tables: one writer at a time, whoever dies, and nothing
// lost that was whole.

#include "Environment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

/// A process that owns tables below a root.
class Process {
  public:
    explicit Process(const std::string& root) {
        int in[2];
        int out[2];
        if (pipe(in) != 0 || pipe(out) != 0) throw std::runtime_error("pipe");
        pid_ = fork();
        if (pid_ == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            for (const int fd : {in[0], in[1], out[0], out[1]}) {
                close(fd);
            }
            execl(LIFE_PROCESS, "lifeProcess", root.c_str(), nullptr);
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        to_ = fdopen(in[1], "w");
        from_ = fdopen(out[0], "r");
    }
    ~Process() {
        kill(SIGKILL);
        fclose(to_);
        fclose(from_);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void send(const std::string& command) {
        std::fprintf(to_, "%s\n", command.c_str());
        std::fflush(to_);
    }
    /// The answer to a command; empty when the process is gone.
    std::string tell(const std::string& command) {
        send(command);
        std::string line;
        for (int c = std::fgetc(from_); c != EOF && c != '\n'; c = std::fgetc(from_)) {
            line.push_back(static_cast<char>(c));
        }
        return line;
    }
    void kill(int signal) {
        if (pid_ <= 0) return;
        ::kill(pid_, signal);
        waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = 0;
    FILE* to_ = nullptr;
    FILE* from_ = nullptr;
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

} // namespace
