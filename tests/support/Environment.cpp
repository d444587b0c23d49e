#include "Environment.h"

#include "Mem/RootPath.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace TestSupport {

TempRoot::TempRoot()
    : previousBase_(Mem::RootPath::base()) {
    const char* const shm = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    std::string name = std::string(shm) + "/rsvp-vesk-test.XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp: " + name);
    path_ = name;
    Mem::RootPath::baseIs(path_);
}

TempRoot::~TempRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    Mem::RootPath::baseIs(previousBase_);
}

TraceCapture::TraceCapture(std::uint16_t levels) {
    Pello::Platform::traceLevelsIs("", levels);
    Pello::traceSinkIs([this](const Pello::TraceLine& line) {
        lines_.push_back(
            {line.level, line.tag.className, line.tag.source, line.tag.operation, line.text});
    });
}

TraceCapture::~TraceCapture() {
    Pello::traceSinkIs({});
    Pello::Platform::traceLevelsIs("", 1);
}

const TraceCapture::Line* TraceCapture::find(const std::string& text) const {
    for (const Line& line : lines_) {
        if (line.text == text) return &line;
    }
    return nullptr;
}

std::uint32_t seedFor(const char* what, std::uint32_t fallback) {
    const char* const text = std::getenv("RSVPVESK_SEED");
    const auto seed =
        text != nullptr ? static_cast<std::uint32_t>(std::strtoul(text, nullptr, 0)) : fallback;
    std::printf("%s: seed %u (RSVPVESK_SEED sets another)\n", what, seed);
    return seed;
}

double lengthFactor() {
    const char* const text = std::getenv("RSVPVESK_LENGTH");
    const double factor = text != nullptr ? std::strtod(text, nullptr) : 1.0;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return factor / 10;
#else
    return factor;
#endif
}

ChildEnd inChild(const std::function<void()>& body, const std::function<void()>& beside) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) throw std::runtime_error("pipe");
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("fork");
    if (child == 0) {
        close(pipeEnds[0]);
        dup2(pipeEnds[1], STDERR_FILENO);
        int code = 0;
        try {
            body();
        } catch (const std::exception& e) {
            std::fprintf(stderr, "exception: %s\n", e.what());
            code = 99;
        }
        std::fflush(stderr);
        _exit(code);
    }
    close(pipeEnds[1]);
    beside();
    ChildEnd end{};
    char buffer[4096];
    for (ssize_t n = 0; (n = read(pipeEnds[0], buffer, sizeof buffer)) > 0;) {
        end.errors.append(buffer, static_cast<std::size_t>(n));
    }
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    end.exited = WIFEXITED(status);
    end.code = end.exited ? WEXITSTATUS(status) : WTERMSIG(status);
    return end;
}

std::vector<unsigned char> fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void patchFile(const std::string& path, std::uint64_t offset, const void* bytes, std::size_t size) {
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(offset));
    file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    file.flush();
    if (!file) throw std::runtime_error("cannot patch " + path);
}

void patchWord(const std::string& path, std::uint64_t offset, std::uint32_t word) {
    patchFile(path, offset, &word, sizeof word);
}

std::uint32_t wordOf(const std::string& path, std::uint64_t offset) {
    std::ifstream in(path, std::ios::binary);
    in.seekg(static_cast<std::streamoff>(offset));
    std::uint32_t word = 0;
    in.read(reinterpret_cast<char*>(&word), sizeof word);
    if (!in) throw std::runtime_error("cannot read " + path);
    return word;
}

} // namespace TestSupport
