#include "Mem/WriterSentry.h"

#include "Vesk/Util.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

namespace Mem {

namespace {

using namespace std::chrono_literals;

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"WriterSentry", "Mem/WriterSentry", operation, line};
}

} // namespace

WriterSentry::WriterSentry(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                           Notifiee& notifiee, const OruRootPath& rootPath,
                           std::vector<Pello::String> files)
    : Debuggable(std::move(handler))
    , notifiee_(notifiee)
    , rootPath_(rootPath)
    , watch_(rootPath.path(), 100ms, [this] { mountAttempt("files changed", false); })
    , files_(std::move(files)) {}

std::vector<Pello::String> WriterSentry::missing() const {
    std::vector<Pello::String> names;
    std::copy_if(files_.begin(), files_.end(), std::back_inserter(names),
                 [this](const Pello::String& name) { return !rootPath_.hasFile(name); });
    return names;
}

bool WriterSentry::due() const {
    if (rootPath_.hasFile(Vesk::Util::CORRUPTION_FILENAME)) return true;
    const std::vector<Pello::String> gone = missing();
    return !gone.empty() && gone != knownMissing_;
}

void WriterSentry::mountAttempt(const Pello::String& event, bool force) {
    PELLO_TRACE(*this, 5, tagOf("mountAttempt"), "{} event:{}", rootPath_, event);
    if (!force && !due()) return;
    if (notifiee_.changing()) {
        later_ = Pello::Loop::ofThisThread()->timer(
            100ms, [this, event, force] { mountAttempt(event, force); });
        return;
    }
    check();
}

void WriterSentry::check() {
    bool ok = false;
    try {
        ok = notifiee_.validateFiles(Vesk::Util::CORRUPTION_FILENAME, 0) && notifiee_.validate();
    } catch (const Pello::Exception& e) {
        PELLO_TRACE(*this, 0, tagOf("check"), "{} {}", rootPath_, e.message());
    }
    knownMissing_ = missing();
    PELLO_TRACE(*this, ok ? 1U : 0U, tagOf("check"), "{} ravoId:{} checked, {}", rootPath_,
                notifiee_.ravoId(), ok ? "sound" : "not sound");
}

} // namespace Mem
