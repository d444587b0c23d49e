#include "TableFiles.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sys/resource.h>

namespace ErrorsTest {

using TestSupport::fileBytes;

TableFiles::TableFiles(std::string theFolder, std::uint32_t valueSize)
    : folder(std::move(theFolder))
    , slots(folder + "/slots")
    , buckets(folder + "/buckets")
    , ravo(folder + "/ravo")
    , slotSize_(16 + valueSize) {}

std::uint32_t TableFiles::slot(std::uint32_t i, SlotWord at) const {
    return TestSupport::wordOf(slots, offsetOf(i) + at);
}

void TableFiles::slotIs(std::uint32_t i, SlotWord at, std::uint32_t word) {
    TestSupport::patchWord(slots, offsetOf(i) + at, word);
}

std::vector<std::uint32_t> TableFiles::listFrom(std::uint32_t next) const {
    std::vector<std::uint32_t> list;
    for (; (next & kBucketBit) == 0; next = slot(next, kNext)) {
        list.push_back(next);
    }
    return list;
}

std::uint32_t TableFiles::bucketWith(std::size_t length) const {
    const std::uint32_t last = numBuckets() - 1;
    for (std::uint32_t b = 0; b < last; ++b) {
        const std::size_t found = chain(b).size();
        if (length == 0 ? found == 0 : found >= length) return b;
    }
    throw std::runtime_error("no such chain");
}

std::uint32_t TableFiles::slotOutside(std::uint32_t bucket) const {
    do {
        bucket = (bucket + 1) % numBuckets();
    } while (chain(bucket).empty());
    return chain(bucket)[0];
}

std::vector<std::uint32_t> TableFiles::valueOf(std::uint32_t slot) const {
    std::vector<std::uint32_t> words;
    for (std::uint64_t at = kValue; at < slotSize_; at += 4) {
        words.push_back(TestSupport::wordOf(slots, offsetOf(slot) + at));
    }
    return words;
}

TableFiles::Image TableFiles::image() const {
    return {fileBytes(slots), fileBytes(buckets), fileBytes(ravo)};
}

void TableFiles::imageIs(const Image& image) {
    const auto put = [](const std::string& path, const std::vector<unsigned char>& bytes) {
        std::ofstream(path, std::ios::app).close(); // in place: a writer may have it mapped
        std::filesystem::resize_file(path, bytes.size());
        TestSupport::patchFile(path, 0, bytes.data(), bytes.size());
    };
    put(slots, image.slots);
    put(buckets, image.buckets);
    put(ravo, image.ravo);
}

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

std::vector<std::string> traced(const TestSupport::TraceCapture& capture) {
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

} // namespace ErrorsTest
