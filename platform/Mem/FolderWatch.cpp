#include "Mem/FolderWatch.h"

#include "Pello/Exception.h"

#include <array>
#include <chrono>
#include <cstring>
#include <map>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Mem {

using namespace std::chrono_literals;

/// The watches of one loop, behind one descriptor: a user has few of them for all processes.
class FolderWatch::Hub {
  public:
    static std::shared_ptr<Hub> of(const Pello::Loop::Ptr& loop) {
        thread_local std::weak_ptr<Hub> current;
        std::shared_ptr<Hub> hub = current.lock();
        // A forked child has a loop of its own, and must leave the parent's descriptor alone.
        if (!hub || hub->loop_ != loop) {
            hub = std::make_shared<Hub>(loop);
            current = hub;
        }
        return hub;
    }

    explicit Hub(Pello::Loop::Ptr loop)
        : loop_(std::move(loop))
        , fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        if (fd_ < 0) return;
        readable_ = loop_->watchFd(fd_, EPOLLIN, [this](std::uint32_t) { drain(); });
    }
    ~Hub() {
        readable_.cancel();
        if (fd_ >= 0) close(fd_);
    }
    Hub(const Hub&) = delete;
    Hub& operator=(const Hub&) = delete;

    /// The watch's number, negative when there is none to have.
    int add(const Pello::String& folder, FolderWatch* watch) {
        constexpr std::uint32_t kEvents = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE |
                                          IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR |
                                          IN_EXCL_UNLINK;
        const int number = fd_ < 0 ? -1 : inotify_add_watch(fd_, folder.c_str(), kEvents);
        if (number >= 0) watches_[number].push_back(watch);
        return number;
    }
    void remove(int number, FolderWatch* watch) {
        const auto found = watches_.find(number);
        if (found == watches_.end() || std::erase(found->second, watch) == 0) return;
        if (!found->second.empty()) return;
        watches_.erase(found);
        if (process_ == getpid()) inotify_rm_watch(fd_, number);
    }

  private:
    void drain() {
        alignas(inotify_event) std::array<char, 4096> events;
        for (ssize_t size = 0; (size = read(fd_, events.data(), events.size())) > 0;) {
            for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
                inotify_event event{};
                std::memcpy(&event, &events[at], sizeof event);
                at += sizeof event + event.len;
                take(event);
            }
        }
    }

    void take(const inotify_event& event) {
        if ((event.mask & IN_Q_OVERFLOW) != 0) {
            for (const auto& [number, watches] : watches_) {
                tell(watches, false);
            }
            return;
        }
        const auto found = watches_.find(event.wd);
        if (found == watches_.end()) return;
        const bool last = (event.mask & IN_IGNORED) != 0;
        tell(found->second, last);
        if (last) watches_.erase(found);
    }

    static void tell(const std::vector<FolderWatch*>& watches, bool last) {
        for (FolderWatch* const watch : watches) {
            watch->ended_ |= last;
            watch->told();
        }
    }

    Pello::Loop::Ptr loop_;
    int fd_;
    const pid_t process_ = getpid();
    std::map<int, std::vector<FolderWatch*>> watches_; ///< several of one folder have one number
    Pello::Loop::Handle readable_;
};

FolderWatch::FolderWatch(const Pello::String& folder, Pello::Loop::Delay settle,
                         std::function<void()> changed)
    : settle_(settle)
    , changed_(std::move(changed)) {
    try {
        loop_ = Pello::Loop::ofThisThread();
    } catch (const Pello::RuntimeException&) {
        return; // no descriptors are left: nobody is told of anything
    }
    hub_ = Hub::of(loop_);
    number_ = hub_->add(folder, this);
    if (number_ >= 0) return;
    hub_.reset();
    polled_ = loop_->repeatingTimer(500ms, [this] { fire(); });
}

FolderWatch::~FolderWatch() {
    if (hub_) hub_->remove(number_, this);
}

void FolderWatch::told() {
    if (!settled_.active()) settled_ = loop_->timer(settle_, [this] { fire(); });
}

void FolderWatch::fire() {
    const std::function<void()> changed = changed_; // it may end this object
    changed();
}

} // namespace Mem
