#include "Pello/Util.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <limits>
#include <mutex>

namespace Pello::Util {

namespace {

struct CanaryLog {
    std::mutex mutex;
    std::vector<String> lines;
};

CanaryLog& canaryLogInstance() {
    static auto* const instance = new CanaryLog;
    return *instance;
}

} // namespace

String traceHandleName(const String& name, const String& handle, bool permanent) {
    String result = handle.empty() ? name : handle + "." + name;
    std::replace(result.begin(), result.end(), '/', '.');
    if (permanent) Platform::getDebugHandler(result, true);
    return result;
}

std::uint64_t fileSizeHelper(std::uint64_t n, std::uint64_t slotSize, std::uint64_t headerSize) {
    constexpr auto kLimit = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    std::uint64_t bytes = 0;
    if (__builtin_mul_overflow(n, slotSize, &bytes) ||
        __builtin_add_overflow(bytes, headerSize, &bytes) || bytes > kLimit) {
        raise<RuntimeException>({"Util", "Pello/Util", "fileSizeHelper"},
                                "file size overflow: {} slots of {} bytes after {} bytes", n,
                                slotSize, headerSize);
    }
    return bytes;
}

void emitCanaryLog(const Platform::DebugHandler& handler, const String& text) {
    {
        CanaryLog& log = canaryLogInstance();
        const std::lock_guard lock(log.mutex);
        log.lines.push_back(text);
    }
    PELLO_TRACE(handler, 0, SourceTag("Util", "Pello/Util", "emitCanaryLog"), "{}", text);
}

std::vector<String> canaryLog() {
    CanaryLog& log = canaryLogInstance();
    const std::lock_guard lock(log.mutex);
    return log.lines;
}

void includeShmemInCore() {
    constexpr unsigned kSharedMappings = 1U << 1U | 1U << 3U; // anonymous and file-backed
    const char* const path = "/proc/self/coredump_filter";
    unsigned filter = 0;
    std::ifstream in(path);
    const bool read = static_cast<bool>(in >> std::hex >> filter);
    const auto write = [&] {
        std::ofstream out(path);
        out << fmt::format("{:#x}", filter | kSharedMappings) << std::flush;
        return static_cast<bool>(out);
    };
    if (!read || !write()) {
        const auto handler = Platform::getDebugHandler("Pello", true);
        PELLO_TRACE(*handler, 0, SourceTag("Util", "Pello/Util", "includeShmemInCore"),
                    "cannot change {}: shared memory may be missing from core dumps", path);
    }
}

} // namespace Pello::Util
