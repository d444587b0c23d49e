#include "Tool.h"

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ToolTest {

namespace {

std::string contentOf(int fd) {
    std::string content;
    std::array<char, 65536> buffer{};
    for (ssize_t n = 0;
         (n = pread(fd, buffer.data(), buffer.size(), static_cast<off_t>(content.size()))) > 0;) {
        content.append(buffer.data(), static_cast<std::size_t>(n));
    }
    close(fd);
    return content;
}

} // namespace

Outcome tool(const std::vector<std::string>& arguments, const std::vector<int>& closed,
             const char* out) {
    std::vector<char*> argv;
    std::vector<std::string> words{RSVPVESK_TOOL};
    words.insert(words.end(), arguments.begin(), arguments.end());
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const int outFd = memfd_create("out", MFD_CLOEXEC);
    const int errFd = memfd_create("err", MFD_CLOEXEC);
    const pid_t child = fork();
    if (child == 0) {
        dup2(out != nullptr ? open(out, O_WRONLY) : outFd, STDOUT_FILENO);
        dup2(errFd, STDERR_FILENO);
        for (const int fd : closed) {
            close(fd);
        }
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status), contentOf(outFd),
            contentOf(errFd)};
}

Figures figuresOf(const json& report) {
    const auto text = [](const json& row, const char* name) {
        return row.at(name).get<std::string>();
    };
    Figures figures;
    for (const json& row : report.at("messages")) {
        figures[text(row, "interface") + " " + text(row, "direction") + " " + text(row, "family") +
                " " + text(row, "type")] += row.at("count").get<std::uint64_t>();
    }
    for (const json& row : report.at("errors")) {
        figures[text(row, "error") + " " + text(row, "direction")] +=
            row.at("count").get<std::uint64_t>();
    }
    return figures;
}

json sampleReport() {
    std::ifstream in(RSVPVESK_SAMPLES "/two-links.expected.json");
    return json::parse(in);
}

Figures sampleFigures(std::uint64_t times) {
    Figures figures = figuresOf(sampleReport());
    for (auto& [row, count] : figures) {
        count *= times;
    }
    return figures;
}

Outcome Tool::agent(std::vector<std::string> more, const std::vector<int>& closed,
                    const char* out) const {
    more.insert(more.begin(), {"--root", root, "agent", "--local", "02:00:5e:10:00"});
    return tool(more, closed, out);
}

Figures Tool::held() const {
    const Outcome run = agent({"--json", "--pcap", write("none.pcap", sample(24))});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.err, "");
    return figuresOf(json::parse(run.out));
}

std::string Tool::write(const std::string& name, const std::string& bytes) const {
    const std::string path = temp.path() + "/" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

std::string Tool::sample(std::size_t bytes) {
    const std::vector<unsigned char> all = TestSupport::fileBytes(kSample);
    return {all.begin(), all.begin() + static_cast<std::ptrdiff_t>(std::min(bytes, all.size()))};
}

} // namespace ToolTest
