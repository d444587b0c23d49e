#include "Pello/Debug.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <unistd.h>

namespace Pello {

namespace {

constexpr std::uint16_t kDefaultLevels = 1U; // level 0: failures must not pass unseen

/// Leaked on purpose, like every process-wide registry: traces come from destructors of objects
/// with static storage duration too.
struct Registry {
    std::mutex mutex;
    std::map<String, std::weak_ptr<Platform::DebugHandler>> handlers;
    std::map<String, std::shared_ptr<Platform::DebugHandler>> permanent;
    std::map<String, std::uint16_t> levelsByName;
    std::uint16_t levels = kDefaultLevels;
    std::shared_ptr<const TraceSink> sink;
    std::atomic<int> fatalExitCode{-1};
};

Registry& registry() {
    static auto* const instance = new Registry;
    return *instance;
}

String lineOf(const SourceTag& tag, const String& text) {
    return fmt::format("{} {}.{}:{} {}", tag.className, tag.source, tag.operation, tag.line, text);
}

} // namespace

void traceSinkIs(TraceSink sink) {
    Registry& r = registry();
    const std::lock_guard lock(r.mutex);
    r.sink = sink ? std::make_shared<const TraceSink>(std::move(sink)) : nullptr;
}

void fatalExitCodeIs(int code) { registry().fatalExitCode = code; }

void fatalText(const Platform::DebugHandler* handler, const SourceTag& tag, const String& text) {
    const String line = lineOf(tag, text);
    std::fprintf(stderr, "%s\n", line.c_str());
    std::fflush(stderr);
    if (handler != nullptr) PELLO_TRACE(*handler, 0, tag, "{}", text);
    if (const int code = registry().fatalExitCode; code >= 0) _exit(code);
    std::abort();
}

namespace Platform {

DebugHandler::DebugHandler(String name)
    : name_(std::move(name))
    , levels_(kDefaultLevels) {}

void DebugHandler::emitText(unsigned level, const SourceTag& tag, const String& text) const {
    std::shared_ptr<const TraceSink> sink;
    {
        Registry& r = registry();
        const std::lock_guard lock(r.mutex);
        sink = r.sink;
    }
    if (sink) {
        (*sink)(TraceLine{name_, level, tag, text});
        return;
    }
    std::fprintf(stderr, "%s %u %s\n", name_.c_str(), level, lineOf(tag, text).c_str());
}

std::shared_ptr<DebugHandler> getDebugHandler(const String& name, bool permanent) {
    Registry& r = registry();
    const std::lock_guard lock(r.mutex);
    std::weak_ptr<DebugHandler>& known = r.handlers[name];
    std::shared_ptr<DebugHandler> handler = known.lock();
    if (!handler) {
        handler = std::make_shared<DebugHandler>(name);
        const auto own = r.levelsByName.find(name);
        handler->levelsIs(own != r.levelsByName.end() ? own->second : r.levels);
        known = handler;
    }
    if (permanent) r.permanent[name] = handler;
    return handler;
}

void traceLevelsIs(const String& name, std::uint16_t mask) {
    Registry& r = registry();
    const std::lock_guard lock(r.mutex);
    if (name.empty()) {
        r.levels = mask;
        r.levelsByName.clear();
    } else {
        r.levelsByName[name] = mask;
    }
    for (const auto& [handlerName, known] : r.handlers) {
        if (!name.empty() && handlerName != name) continue;
        if (const auto handler = known.lock()) handler->levelsIs(mask);
    }
}

} // namespace Platform
} // namespace Pello
