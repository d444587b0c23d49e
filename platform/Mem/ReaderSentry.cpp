#include "Mem/ReaderSentry.h"

#include "Mem/OwnFile.h"
#include "Pello/Exception.h"
#include "SharedMem/RavoFile.h"

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

namespace Mem {

namespace {

using namespace std::chrono_literals;

constexpr Pello::Loop::Delay kSettle = 10ms;
constexpr Pello::Loop::Delay kFirstRetry = 50ms;
constexpr Pello::Loop::Delay kLongestRetry = 2s;
constexpr Pello::Loop::Delay kSafetyPeriod = 1s;

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"ReaderSentry", "Mem/ReaderSentry", operation, line};
}

} // namespace

ReaderSentry::ReaderSentry(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                           const OruRootPath& rootPath, Notifiee& notifiee,
                           std::vector<IdentityWord> files)
    : Debuggable(std::move(handler))
    , rootPath_(rootPath)
    , notifiee_(notifiee)
    , files_(std::move(files))
    , retryDelay_(kFirstRetry) {
    try {
        loop_ = Pello::Loop::ofThisThread();
        safety_ = loop_->repeatingTimer(kSafetyPeriod, [this] { ownAttempt(); });
    } catch (const Pello::RuntimeException& e) {
        PELLO_TRACE(*this, 0, tagOf("ReaderSentry"), "{} {}", rootPath_, e.message());
    }
}

void ReaderSentry::mountAttempt(const Pello::String& event, bool /*force*/) {
    const Pello::SourceTag tag = tagOf("mountAttempt");
    PELLO_TRACE(*this, 5, tag, "{} event:{} mode:{} enabled:{}", rootPath_, event,
                notifiee_.modeStr(), enabled_);
    if (!enabled_ || notifiee_.localMem()) return;
    if (notifiee_.inTransition()) {
        if (loop_) loop_->post([this, event] { ownAttempt(event); }, alive_);
        return;
    }
    watchNearestFolder();
    const Table table = peek();
    const bool attached = notifiee_.ravoId() != SharedMem::RavoId();
    if (attached && table == attachedTo_) {
        if (notifiee_.disconnectedActiveReader() && notifiee_.notifying()) attach(table, event);
        return;
    }
    // While a writer formats the table the old one goes on being read.
    if (table.exists && !table.agrees) return;
    if (attached) {
        PELLO_TRACE(*this, 2, tag, "{} ravoId:{} is gone, now ravoId:{}", rootPath_, attachedTo_.id,
                    table.id);
        const std::weak_ptr<const void> alive = alive_;
        notifiee_.detach(false);
        if (alive.expired() || !enabled_) return;
    }
    if (table.agrees) attach(table, event);
}

void ReaderSentry::attach(const Table& table, const Pello::String& event) {
    const std::weak_ptr<const void> alive = alive_;
    notifiee_.attach(event);
    if (alive.expired()) return;
    if (notifiee_.ravoId() == SharedMem::RavoId()) {
        lookAgain();
        return;
    }
    attachedTo_ = table;
    everAttached_ = true;
    retryDelay_ = kFirstRetry;
    retry_.cancel();
}

void ReaderSentry::readFailed() {
    if (!loop_ || std::exchange(lookIsPosted_, true)) return;
    loop_->post(
        [this] {
            lookIsPosted_ = false;
            ownAttempt();
        },
        alive_);
}

void ReaderSentry::lookAgain() {
    if (!loop_) return;
    retry_ = loop_->timer(retryDelay_, [this] { ownAttempt(); });
    retryDelay_ = std::min(2 * retryDelay_, kLongestRetry);
}

void ReaderSentry::ownAttempt() { ownAttempt(everAttached_ ? kTryAttach : kInit); }

void ReaderSentry::ownAttempt(const Pello::String& event) {
    const std::weak_ptr<const void> alive = alive_;
    try {
        mountAttempt(event, false);
    } catch (const Pello::Exception& e) {
        if (alive.expired()) return;
        PELLO_TRACE(*this, 0, tagOf("ownAttempt"), "{} {}", rootPath_, e.message());
        lookAgain();
    }
}

void ReaderSentry::watchNearestFolder() {
    if (!loop_) return;
    while (true) {
        Pello::String folder = rootPath_.path();
        struct stat status {};
        while (stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
            const std::size_t slash = folder.rfind('/');
            folder = slash == Pello::String::npos ? "." : folder.substr(0, std::max(slash, 1UL));
        }
        const std::pair<Pello::String, Inode> nearest{folder, {status.st_dev, status.st_ino}};
        if (watched_ == nearest && !watch_->ended()) return;
        watch_.reset(); // the kernel hands out the same watch for the same folder
        watch_ = std::make_unique<FolderWatch>(folder, kSettle, [this] {
            retryDelay_ = kFirstRetry;
            ownAttempt();
        });
        watched_ = nearest;
        // Once more: what came between the look and the watch nobody tells.
    }
}

ReaderSentry::Table ReaderSentry::peek() const {
    Table table;
    table.exists = rootPath_.hasFile(SharedMem::RavoFile::RAVO_NAME);
    table.id = SharedMem::RavoFile(*debugHandler(), rootPath_, false).read();
    table.agrees = table.exists && table.id != SharedMem::RavoId();
    for (const IdentityWord& word : files_) {
        const int fd = open(rootPath_.filePath(word.fileName).c_str(), OwnFile::kReadFlags);
        struct stat status {};
        std::uint32_t id = 0;
        if (fd < 0 || fstat(fd, &status) != 0) {
            table.exists = false;
        } else if (pread(fd, &id, sizeof id, word.offset) != sizeof id) {
            id = 0;
        }
        if (fd >= 0) close(fd);
        table.files.emplace_back(status.st_dev, status.st_ino);
        table.agrees = table.agrees && table.exists && SharedMem::RavoId(id) == table.id;
    }
    return table;
}

} // namespace Mem
