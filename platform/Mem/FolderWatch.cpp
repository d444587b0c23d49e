#include "Mem/FolderWatch.h"

#include "Pello/Exception.h"

#include <array>
#include <chrono>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

namespace Mem {

using namespace std::chrono_literals;

FolderWatch::FolderWatch(const Pello::String& folder, std::function<void()> changed)
    : changed_(std::move(changed)) {
    constexpr std::uint32_t kEvents = IN_CREATE | IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE |
                                      IN_DELETE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;
    try {
        loop_ = Pello::Loop::ofThisThread();
    } catch (const Pello::RuntimeException&) {
        return; // no descriptors are left: nobody is told of anything
    }
    fd_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (fd_ >= 0 && inotify_add_watch(fd_, folder.c_str(), kEvents) >= 0) {
        watch_ = loop_->watchFd(fd_, EPOLLIN, [this](std::uint32_t) { drain(); });
    } else {
        watch_ = loop_->repeatingTimer(500ms, [this] { fire(); });
    }
}

FolderWatch::~FolderWatch() {
    watch_.cancel();
    if (fd_ >= 0) close(fd_);
}

void FolderWatch::drain() {
    std::array<char, 4096> events;
    while (read(fd_, events.data(), events.size()) > 0) {
    }
    if (!settle_.active()) settle_ = loop_->timer(100ms, [this] { fire(); });
}

void FolderWatch::fire() {
    const std::function<void()> changed = changed_; // it may end this object
    changed();
}

} // namespace Mem
