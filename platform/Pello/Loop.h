#pragma once

// The event loop of a thread.
//
// Every thread that asks has one loop. What was registered with it runs on that thread only, and
// only inside `runOnce`. Either the thread calls that itself, or it adds `fd()` to a poll, epoll or
// select of its own, level-triggered, and calls `runOnce(0)` whenever it is readable:
//
// L1  `fd()` is readable as soon as there is something to run: a post from any thread, a timer that
//     is due, a watched descriptor. That holds also for what was added or posted since the last
//     `runOnce`. It may be readable with nothing to run.
// L2  A callback may post, add, cancel and destroy handles, its own included. What has been
//     cancelled does not run any more, even when it was due already.
// L3  A callback that throws ends that `runOnce`, which throws the same; everything else that was
//     due runs in later calls.
//
// `post` may be called from any thread; everything else only on the loop's thread. A loop ends
// with its thread: what was registered is dropped and later posts are dropped too.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace Pello {

/// Tells the life of an object that posts tasks: a member of it, destroyed with it. The object
/// lives and ends on the thread of the loop that it posts to.
class AliveToken {
  public:
    AliveToken()
        : token_(std::make_shared<char>()) {}
    AliveToken(const AliveToken&) = delete;
    AliveToken& operator=(const AliveToken&) = delete;

    operator std::weak_ptr<const void>() const { return token_; }

  private:
    std::shared_ptr<const void> token_;
};

class Loop {
  public:
    using Ptr = std::shared_ptr<Loop>;
    using Task = std::function<void()>;
    /// Gets the ready events, as of epoll.
    using FdTask = std::function<void(std::uint32_t events)>;
    using OwnerToken = std::weak_ptr<const void>;
    using Delay = std::chrono::microseconds;

    /// Keeps a timer or a watch: destroying it cancels. An empty handle keeps nothing. It may
    /// outlive the loop.
    class Handle;

    /// The calling thread's loop. In a forked child it is a fresh one; handles of the parent's
    /// loop are dead there. Throws `RuntimeException` when the system refuses a descriptor.
    static Ptr ofThisThread();

    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;
    ~Loop();

    /// The descriptor to wait for (L1). It belongs to the loop.
    int fd() const;

    /// Runs what is due: the thread's critical tasks, timers and watches, then the posted tasks;
    /// waits for something to run, at most `timeoutMs` milliseconds (0 does not wait, a negative
    /// one waits without end). Tasks posted meanwhile by these wait for the next call, and each
    /// call is bounded, so that a host gets its turn. Returns how many callbacks ran. Throws
    /// `RuntimeException` inside a callback of the same loop and on another thread.
    unsigned runOnce(int timeoutMs);

    /// Runs the task once on the loop's thread, in the order of the posts; not at all when the
    /// owner has ended by then.
    void post(Task task, OwnerToken owner);
    void post(Task task);

    /// Runs the task once, after `delay` or at most 1 microsecond and the machine's latency later.
    /// Timers and watches that one call finds due run in no particular order.
    [[nodiscard]] Handle timer(Delay delay, Task task);
    /// Runs the task every `period` (at least 1 microsecond), counted from now. Of the times that
    /// have passed before the loop came to them, all but one are skipped.
    [[nodiscard]] Handle repeatingTimer(Delay period, Task task);
    /// Runs the task while the descriptor has one of `events` (EPOLLIN, EPOLLOUT ...; EPOLLERR and
    /// EPOLLHUP always count). The handle must go before the descriptor is closed. Throws
    /// `RuntimeException` for a descriptor that cannot be polled or is watched already.
    [[nodiscard]] Handle watchFd(int fd, std::uint32_t events, FdTask task);

  private:
    struct Impl;
    struct Source;
    explicit Loop(std::unique_ptr<Impl> impl);
    Handle addTimer(const char* operation, std::uint64_t delayUs, std::uint64_t periodUs,
                    Task task);

    std::unique_ptr<Impl> impl_;
};

class Loop::Handle {
  public:
    Handle() = default;
    Handle(Handle&& other) noexcept = default;
    Handle& operator=(Handle&& other) noexcept;
    ~Handle();

    void cancel();
    /// Registered, and not a one-shot timer that has run.
    bool active() const;

  private:
    friend class Loop;
    explicit Handle(std::shared_ptr<Source> source);

    std::shared_ptr<Source> source_;
};

} // namespace Pello
