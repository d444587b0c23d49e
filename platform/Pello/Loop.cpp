#include "Pello/Loop.h"

#include "Pello/Debug.h"
#include "Pello/Exception.h"
#include "Pello/Scheduler.h"

#include <systemd/sd-event.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <deque>
#include <exception>
#include <mutex>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <unordered_set>
#include <utility>

namespace Pello {

namespace {

/// Timers may share a wake-up when they lie this close together.
constexpr std::uint64_t kAccuracyUs = 1;
/// Timers and watches that one call of `runOnce` runs before it gives the host its turn.
constexpr int kMostDispatches = 64;

constexpr std::uint64_t kNoEnd = UINT64_MAX;

SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"Loop", "Pello/Loop", operation, line};
}

/// The result of a call of the event library, or the exception for it.
int checked(const SourceTag& tag, const char* call, int result) {
    if (result < 0) raise<RuntimeException>(tag, "{}: {}", call, std::strerror(-result));
    return result;
}

std::uint64_t nowUs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000U +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000U;
}

/// Saturated: a point in time that never comes is one, not an overflow.
std::uint64_t after(std::uint64_t start, std::uint64_t delay) {
    return delay >= kNoEnd - 1 - start ? kNoEnd - 1 : start + delay;
}

std::uint64_t micros(Loop::Delay delay) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(delay.count(), 0));
}

struct Posted {
    Loop::Task task;
    Loop::OwnerToken owner;
    bool owned;
};

} // namespace

struct Loop::Source : std::enable_shared_from_this<Loop::Source> {
    Impl* loop = nullptr; ///< null: not registered any more
    sd_event_source* event = nullptr;
    Task task;
    FdTask fdTask;
    std::uint64_t period = 0; ///< 0: once
    std::uint64_t due = 0;

    void cancel();
    void release();
};

/// The event library works in rounds: prepare arms its timers, wait collects what is due, dispatch
/// runs one callback. Between two calls of `runOnce` the round is left prepared, since that is what
/// makes the descriptor tell the host about timers. What a change does after that the descriptor
/// does not show; such a change therefore makes the wake-up descriptor readable, and the next
/// `runOnce` starts a new round.
struct Loop::Impl {
    sd_event* event = nullptr;
    sd_event_source* wakeSource = nullptr;
    int wakeFd = -1;
    const std::thread::id thread = std::this_thread::get_id();
    const pid_t process = getpid();

    bool running = false;
    bool stale = false; ///< something was added since the round was prepared
    unsigned ran = 0;
    std::exception_ptr failure;
    std::unordered_set<Source*> sources;

    std::mutex mutex; ///< for what follows, and for writing to the wake-up descriptor
    std::deque<Posted> posts;
    bool closed = false;

    Impl() = default;
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() { close(); }

    void open();
    void close();
    void checkThread(const char* operation) const;
    void wake() const;
    void post(Posted posted);
    void runPosts();
    bool dispatchOne(std::uint64_t timeoutUs);
    void prepare();
    void registered(Source& source);

    template <class Call>
    void run(const Call& call) {
        ++ran;
        try {
            call();
        } catch (...) {
            failure = std::current_exception(); // must not pass through the library's C code
        }
    }

    static int onWake(sd_event_source* event, int fd, std::uint32_t events, void* loop);
    static int onTime(sd_event_source* event, std::uint64_t due, void* source);
    static int onFd(sd_event_source* event, int fd, std::uint32_t events, void* source);
};

void Loop::Source::release() {
    sd_event_source_disable_unref(std::exchange(event, nullptr));
    loop = nullptr;
}

void Loop::Source::cancel() {
    if (loop == nullptr) return;
    if (loop->thread != std::this_thread::get_id()) {
        fatal(nullptr, tagOf("cancel"), "a handle is cancelled on another thread than its loop's");
    }
    loop->sources.erase(this);
    release();
}

void Loop::Impl::open() {
    const SourceTag tag = tagOf("ofThisThread");
    checked(tag, "sd_event_new", sd_event_new(&event));
    wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd < 0) checked(tag, "eventfd", -errno);
    checked(tag, "sd_event_add_io",
            sd_event_add_io(event, &wakeSource, wakeFd, EPOLLIN, onWake, this));
    prepare();
}

void Loop::Impl::close() {
    std::deque<Posted> dropped; // their captures end after the lock is free
    {
        const std::lock_guard lock(mutex);
        if (closed) return;
        closed = true;
        dropped.swap(posts);
    }
    for (Source* source : std::exchange(sources, {})) {
        source->release();
    }
    sd_event_source_disable_unref(wakeSource);
    sd_event_unref(event);
    if (wakeFd >= 0) ::close(wakeFd);
}

void Loop::Impl::checkThread(const char* operation) const {
    if (thread != std::this_thread::get_id() || process != getpid()) {
        raise<RuntimeException>(tagOf(operation),
                                "{}: the loop belongs to another thread or process", operation);
    }
}

void Loop::Impl::wake() const {
    const std::uint64_t one = 1;
    // Fails only when the counter is full, and then the descriptor is readable anyway.
    while (write(wakeFd, &one, sizeof one) < 0 && errno == EINTR) {
    }
}

void Loop::Impl::post(Posted posted) {
    const std::lock_guard lock(mutex);
    if (closed) return;
    posts.push_back(std::move(posted));
    if (posts.size() == 1) wake();
}

void Loop::Impl::runPosts() {
    std::deque<Posted> due;
    {
        const std::lock_guard lock(mutex);
        due.swap(posts);
    }
    while (!due.empty() && !failure) {
        const Posted posted = std::move(due.front());
        due.pop_front();
        const std::shared_ptr<const void> owner = posted.owner.lock();
        if (posted.owned && !owner) continue;
        run(posted.task);
    }
    if (due.empty()) return;
    const std::lock_guard lock(mutex);
    posts.insert(posts.begin(), std::make_move_iterator(due.begin()),
                 std::make_move_iterator(due.end()));
}

bool Loop::Impl::dispatchOne(std::uint64_t timeoutUs) {
    const SourceTag tag = tagOf("runOnce");
    if (sd_event_get_state(event) == SD_EVENT_INITIAL) {
        checked(tag, "sd_event_prepare", sd_event_prepare(event));
        stale = false;
    }
    if (sd_event_get_state(event) == SD_EVENT_ARMED) {
        checked(tag, "sd_event_wait", sd_event_wait(event, timeoutUs));
    }
    if (sd_event_get_state(event) != SD_EVENT_PENDING) return false;
    checked(tag, "sd_event_dispatch", sd_event_dispatch(event));
    return true;
}

void Loop::Impl::prepare() {
    const SourceTag tag = tagOf("prepare");
    if (sd_event_get_state(event) == SD_EVENT_INITIAL) {
        checked(tag, "sd_event_prepare", sd_event_prepare(event));
        stale = false;
    }
    // What was collected already, and posts that a failure left, the descriptor does not show.
    const std::lock_guard lock(mutex);
    if (sd_event_get_state(event) == SD_EVENT_PENDING || stale || !posts.empty()) wake();
}

void Loop::Impl::registered(Source& source) {
    source.loop = this;
    sources.insert(&source);
    if (!stale && !running) wake();
    stale = true;
}

int Loop::Impl::onWake(sd_event_source* /*event*/, int fd, std::uint32_t /*events*/,
                       void* /*loop*/) {
    std::uint64_t count = 0;
    while (read(fd, &count, sizeof count) < 0 && errno == EINTR) {
    }
    return 0;
}

int Loop::Impl::onTime(sd_event_source* /*event*/, std::uint64_t /*due*/, void* userdata) {
    // The callback may destroy the handle: this reference keeps what is running.
    const std::shared_ptr<Source> source = static_cast<Source*>(userdata)->shared_from_this();
    Impl& loop = *source->loop;
    if (source->period == 0) {
        source->cancel();
    } else {
        const std::uint64_t now = nowUs();
        const std::uint64_t passed = now > source->due ? (now - source->due) / source->period : 0;
        source->due = after(source->due, (passed + 1) * source->period);
        sd_event_source_set_time(source->event, source->due);
        sd_event_source_set_enabled(source->event, SD_EVENT_ONESHOT);
    }
    loop.run(source->task);
    return 0;
}

int Loop::Impl::onFd(sd_event_source* /*event*/, int /*fd*/, std::uint32_t events, void* userdata) {
    const std::shared_ptr<Source> source = static_cast<Source*>(userdata)->shared_from_this();
    source->loop->run([&] { source->fdTask(events); });
    return 0;
}

Loop::Loop(std::unique_ptr<Impl> impl)
    : impl_(std::move(impl)) {}

Loop::~Loop() = default;

Loop::Ptr Loop::ofThisThread() {
    struct Holder {
        Ptr loop;
        ~Holder() {
            if (loop) loop->impl_->close();
        }
    };
    thread_local Holder holder;
    if (holder.loop && holder.loop->impl_->process != getpid()) {
        // Left alone for ever: the descriptors behind it are the parent's too, and another thread
        // may have held its lock when this process was forked.
        new Ptr(std::move(holder.loop));
    }
    if (!holder.loop) {
        auto impl = std::make_unique<Impl>();
        impl->open();
        holder.loop = Ptr(new Loop(std::move(impl)));
    }
    return holder.loop;
}

int Loop::fd() const { return sd_event_get_fd(impl_->event); }

unsigned Loop::runOnce(int timeoutMs) {
    Impl& loop = *impl_;
    loop.checkThread("runOnce");
    if (loop.running) {
        raise<RuntimeException>(tagOf("runOnce"), "runOnce inside a callback of the same loop");
    }
    struct Running {
        Impl& loop;
        explicit Running(Impl& theLoop)
            : loop(theLoop) {
            loop.running = true;
        }
        ~Running() { loop.running = false; }
    };
    const std::uint64_t end =
        timeoutMs < 0 ? kNoEnd : after(nowUs(), static_cast<std::uint64_t>(timeoutMs) * 1000U);
    loop.ran = 0;
    {
        const Running running(loop);
        for (std::uint64_t now = nowUs();; now = nowUs()) {
            loop.run([] { schedulerRootPello()->runCriticalPriorityTasks(); });
            --loop.ran;
            const std::uint64_t wait = end == kNoEnd ? kNoEnd : end > now ? end - now : 0;
            bool more = !loop.failure && loop.dispatchOne(wait);
            for (int i = 1; i < kMostDispatches && more && !loop.failure; ++i) {
                more = loop.dispatchOne(0);
            }
            loop.runPosts();
            if (loop.failure || loop.ran > 0 || wait == 0) break;
        }
        loop.prepare();
    }
    if (loop.failure) std::rethrow_exception(std::exchange(loop.failure, nullptr));
    return loop.ran;
}

void Loop::post(Task task, OwnerToken owner) {
    impl_->post({std::move(task), std::move(owner), true});
}

void Loop::post(Task task) { impl_->post({std::move(task), {}, false}); }

Loop::Handle Loop::timer(Delay delay, Task task) {
    return addTimer("timer", micros(delay), 0, std::move(task));
}

Loop::Handle Loop::repeatingTimer(Delay period, Task task) {
    const std::uint64_t us = std::max<std::uint64_t>(micros(period), 1);
    return addTimer("repeatingTimer", us, us, std::move(task));
}

Loop::Handle Loop::addTimer(const char* operation, std::uint64_t delay, std::uint64_t period,
                            Task task) {
    impl_->checkThread(operation);
    auto source = std::make_shared<Source>();
    source->task = std::move(task);
    source->period = period;
    source->due = after(nowUs(), delay);
    checked(tagOf(operation), "sd_event_add_time",
            sd_event_add_time(impl_->event, &source->event, CLOCK_MONOTONIC, source->due,
                              kAccuracyUs, Impl::onTime, source.get()));
    impl_->registered(*source);
    return Handle(std::move(source));
}

Loop::Handle Loop::watchFd(int fd, std::uint32_t events, FdTask task) {
    impl_->checkThread("watchFd");
    auto source = std::make_shared<Source>();
    source->fdTask = std::move(task);
    checked(tagOf("watchFd"), "sd_event_add_io",
            sd_event_add_io(impl_->event, &source->event, fd, events, Impl::onFd, source.get()));
    impl_->registered(*source);
    return Handle(std::move(source));
}

Loop::Handle::Handle(std::shared_ptr<Source> source)
    : source_(std::move(source)) {}

Loop::Handle& Loop::Handle::operator=(Handle&& other) noexcept {
    if (this != &other) {
        cancel();
        source_ = std::move(other.source_);
    }
    return *this;
}

Loop::Handle::~Handle() { cancel(); }

void Loop::Handle::cancel() {
    if (const std::shared_ptr<Source> source = std::exchange(source_, nullptr)) source->cancel();
}

bool Loop::Handle::active() const { return source_ && source_->loop != nullptr; }

} // namespace Pello
