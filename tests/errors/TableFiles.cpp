#include "TableFiles.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sys/resource.h>

namespace ErrorsTest {

std::string said(const Pello::SourceTag& tag, const std::string& text) {
    return fmt::format("{} {}.{} {}", tag.className, tag.source, tag.operation, text);
}

std::string fatalOf(const std::function<void()>& body) {
    const TestSupport::ChildEnd end = TestSupport::inChild([&] {
        const rlimit noCore{};
        setrlimit(RLIMIT_CORE, &noCore);
        body();
    });
    if (end.exited || end.code != SIGABRT) {
        return fmt::format("{} {}: {}", end.exited ? "exit" : "signal", end.code, end.errors);
    }
    return std::regex_replace(end.errors.substr(0, end.errors.find('\n')),
                              std::regex("^([^ ]+ [^ :]+):[0-9]+ "), "$1 ");
}

std::vector<std::string> traced(const TraceCapture& capture) {
    std::vector<std::string> lines;
    for (const auto& line : capture.lines()) {
        lines.push_back(fmt::format("{} {} {}.{} {}", line.level, line.className, line.source,
                                    line.operation, line.text));
    }
    return lines;
}

TraceHook::TraceHook(std::uint16_t levels, std::function<void(const std::string&)> onTrace) {
    Pello::Platform::traceLevelsIs("", levels);
    Pello::traceSinkIs(
        [hook = std::move(onTrace)](const Pello::TraceLine& line) { hook(line.text); });
}

TraceHook::~TraceHook() {
    Pello::traceSinkIs({});
    Pello::Platform::traceLevelsIs("", 1);
}

TableFiles::Image TableFiles::image() const {
    using TestSupport::fileBytes;
    return {fileBytes(slots), fileBytes(buckets), fileBytes(ravo)};
}

void TableFiles::imageIs(const Image& image) const {
    const std::string* const paths[] = {&slots, &buckets, &ravo};
    for (std::size_t i = 0; i < image.size(); ++i) {
        std::ofstream(*paths[i], std::ios::app).close(); // in place: a writer may have it mapped
        std::filesystem::resize_file(*paths[i], image[i].size());
        TestSupport::patchFile(*paths[i], 0, image[i].data(), image[i].size());
    }
}

} // namespace ErrorsTest
