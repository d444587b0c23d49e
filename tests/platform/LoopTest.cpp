// The event loop, driven as its hosts drive it: by a poll() of their own on one descriptor.

#include "Pello/Loop.h"
#include "Environment.h"
#include "Pello/Scheduler.h"
#include "Pello/Time.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <random>
#include <sys/epoll.h>
#include <thread>
#include <unistd.h>

namespace {

using Pello::Loop;
using namespace std::chrono_literals;

bool readable(int fd, int timeoutMs) {
    pollfd wanted{fd, POLLIN, 0};
    return poll(&wanted, 1, timeoutMs) == 1;
}

/// A host: it knows the descriptor only, and calls the loop when that is readable. True when
/// `done` came true within ten seconds.
template <class Done>
bool host(const Loop::Ptr& loop, const Done& done) {
    const double end = Pello::time() + 10;
    while (!done()) {
        if (Pello::time() > end) return false;
        if (readable(loop->fd(), 100)) loop->runOnce(0);
    }
    return true;
}

/// Runs until nothing is due.
void settle(const Loop::Ptr& loop) {
    while (readable(loop->fd(), 0)) {
        loop->runOnce(0);
    }
}

struct Pipe {
    Pipe() { EXPECT_EQ(pipe(ends.data()), 0); }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    void put() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void take() const {
        char byte = 0;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
    }
    std::array<int, 2> ends{};
};

TEST(Loop, EveryThreadHasItsOwn) {
    const Loop::Ptr loop = Loop::ofThisThread();
    EXPECT_EQ(Loop::ofThisThread(), loop);
    settle(loop);
    EXPECT_FALSE(readable(loop->fd(), 0)) << "an idle loop does not wake its host";
    Loop::Ptr other;
    Loop::Handle outliving;
    bool ran = false;
    std::thread([&] {
        other = Loop::ofThisThread();
        EXPECT_THROW(loop->runOnce(0), Pello::RuntimeException);
        EXPECT_THROW(static_cast<void>(loop->timer(0us, [] {})), Pello::RuntimeException);
        outliving = other->timer(0us, [&] { ran = true; });
        other->post([&] { ran = true; });
    }).join();
    EXPECT_NE(other, loop);
    EXPECT_FALSE(outliving.active());
    other->post([&] { ran = true; });
    EXPECT_THROW(other->runOnce(0), Pello::RuntimeException);
    EXPECT_FALSE(ran);
}

TEST(Loop, HostSeesPostsOfOtherThreadsInTheirOrder) {
    const Loop::Ptr loop = Loop::ofThisThread();
    constexpr std::size_t kThreads = 3;
    constexpr int kPosts = 5000;
    std::array<int, kThreads> last{};
    int wrong = 0;
    {
        std::vector<std::jthread> threads;
        for (std::size_t t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                for (int i = 1; i <= kPosts; ++i) {
                    loop->post([&, t, i] { wrong += std::exchange(last[t], i) != i - 1; });
                    if (i % 500 == 0) std::this_thread::sleep_for(1ms);
                }
            });
        }
        EXPECT_TRUE(host(loop, [&] {
            return std::ranges::count(last, kPosts) == static_cast<std::ptrdiff_t>(kThreads);
        }));
    }
    EXPECT_EQ(wrong, 0);

    // A host that sleeps without end is woken.
    std::jthread poster([&] {
        std::this_thread::sleep_for(20ms);
        loop->post([&] { last[0] = -1; });
    });
    EXPECT_EQ(loop->runOnce(-1), 1U);
    EXPECT_EQ(last[0], -1);
}

TEST(Loop, TasksOfADeadOwnerAreDropped) {
    const Loop::Ptr loop = Loop::ofThisThread();
    std::string ran;
    auto owner = std::make_unique<Pello::AliveToken>();
    const Pello::AliveToken living;
    loop->post([&] { ran += "a"; }, *owner);
    loop->post([&] { owner.reset(); }, *owner); // ends the owner while its task runs
    loop->post([&] { ran += "b"; }, *owner);
    loop->post([&] { ran += "c"; }, living);
    loop->post([&] {
        ran += "d";
        loop->post([&] { ran += "e"; });
    });
    EXPECT_EQ(loop->runOnce(0), 4U);
    EXPECT_EQ(ran, "acd") << "a task that a task posts waits for the next call";
    EXPECT_TRUE(readable(loop->fd(), 0));
    settle(loop);
    EXPECT_EQ(ran, "acde");

    // One that posts itself for ever leaves the host its turn.
    int rounds = 0;
    std::function<void()> again = [&] {
        if (++rounds < 10) loop->post(again);
    };
    loop->post(again);
    for (int i = 1; i <= 10; ++i) {
        loop->runOnce(0);
        EXPECT_EQ(rounds, i);
    }
}

TEST(Loop, HostSeesTimersAddedBetweenPolls) {
    const Loop::Ptr loop = Loop::ofThisThread();
    settle(loop);
    double late = 1;
    // The machine may hold the process up: one of several rounds has to be in time.
    for (int round = 0; round < 10 && late > 0.02; ++round) {
        std::string ran;
        const double start = Pello::time();
        const auto far = loop->timer(60s, [&] { ran += "far"; });
        const auto second = loop->timer(30ms, [&] { ran += "2"; });
        settle(loop);
        double at = 0;
        const auto first = loop->timer(10ms, [&] {
            at = Pello::time() - start;
            ran += "1";
        });
        EXPECT_TRUE(host(loop, [&] { return ran.size() >= 2; }));
        EXPECT_EQ(ran, "12");
        EXPECT_GE(at, 0.0099);
        EXPECT_TRUE(far.active());
        EXPECT_FALSE(first.active());
        late = std::max(at - 0.01, Pello::time() - start - 0.03);
    }
    EXPECT_LT(late, 0.02);
    // The loop's own waiting sees a timer that was added since, too.
    bool ran = false;
    const auto timer = loop->timer(5ms, [&] { ran = true; });
    EXPECT_EQ(loop->runOnce(5000), 1U);
    EXPECT_TRUE(ran);
    EXPECT_EQ(loop->runOnce(1), 0U);
}

/// Timers and posts that add, cancel and replace each other at random.
TEST(Loop, RandomTimersFireOnceInTimeAndNeverAfterTheirCancellation) {
    std::mt19937 random(TestSupport::seedFor("Loop", 11));
    const Loop::Ptr loop = Loop::ofThisThread();
    struct Timer {
        Loop::Handle handle;
        double due = 0;
        bool armed = false;
    };
    std::array<Timer, 200> timers;
    int fired = 0;
    int armed = 0;
    int budget = 5000;
    std::function<void(std::size_t)> arm;
    const auto change = [&] {
        Timer& timer = timers[random() % timers.size()];
        if (random() % 3 == 0) {
            armed -= timer.armed ? 1 : 0;
            timer.armed = false;
            timer.handle.cancel();
        } else if (budget > 0) {
            arm(static_cast<std::size_t>(&timer - timers.data()));
        }
    };
    arm = [&](std::size_t index) {
        Timer& timer = timers[index];
        armed += timer.armed ? 0 : 1;
        --budget;
        const std::chrono::microseconds delay(random() % 4 == 0 ? 0 : random() % 2000);
        timer.due = Pello::time() + std::chrono::duration<double>(delay).count();
        timer.armed = true;
        timer.handle = loop->timer(delay, [&, index, due = timer.due] {
            Timer& self = timers[index];
            EXPECT_TRUE(self.armed) << "fired after its cancellation, or twice";
            EXPECT_EQ(self.due, due) << "fired after it was replaced";
            EXPECT_GE(Pello::time(), due - 2e-6);
            EXPECT_FALSE(self.handle.active());
            self.armed = false;
            --armed;
            ++fired;
            for (unsigned i = random() % 4; i > 0; --i) {
                change();
            }
            if (random() % 4 == 0) loop->post(change);
        });
    };
    for (std::size_t i = 0; i < timers.size(); ++i) {
        arm(i);
    }
    EXPECT_TRUE(host(loop, [&] {
        if (armed == 0 && budget > 0) arm(random() % timers.size()); // between polls
        return armed == 0;
    }));
    EXPECT_EQ(std::ranges::count_if(timers, [](const Timer& t) { return t.handle.active(); }), 0);
    EXPECT_GT(fired, 1000);
}

TEST(Loop, RepeatingTimersKeepTheirBeatAndSkipWhatTheyMissed) {
    const Loop::Ptr loop = Loop::ofThisThread();
    int ticks = 0;
    const double start = Pello::time();
    Loop::Handle timer;
    timer = loop->repeatingTimer(2ms, [&] {
        if (++ticks == 20) timer = Loop::Handle(); // its own handle
    });
    EXPECT_TRUE(host(loop, [&] { return ticks == 20; }));
    EXPECT_GE(Pello::time() - start, 0.0399);
    EXPECT_FALSE(timer.active());

    timer = loop->repeatingTimer(1ms, [&] { ++ticks; });
    std::this_thread::sleep_for(50ms);
    loop->runOnce(0);
    EXPECT_LE(ticks, 25) << "missed ticks came all at once";
    EXPECT_GE(ticks, 21);
    timer.cancel();
    const int before = ticks;
    std::this_thread::sleep_for(3ms);
    settle(loop);
    EXPECT_EQ(ticks, before);
}

TEST(Loop, WatchesOfOnePollCancelEachOther) {
    const Loop::Ptr loop = Loop::ofThisThread();
    const Pipe a;
    const Pipe b;
    std::array<Loop::Handle, 2> handles;
    int ran = 0;
    for (std::size_t i = 0; i < 2; ++i) {
        const Pipe& own = i == 0 ? a : b;
        handles[i] = loop->watchFd(own.ends[0], EPOLLIN, [&, i](std::uint32_t events) {
            EXPECT_EQ(events, static_cast<std::uint32_t>(EPOLLIN));
            ++ran;
            handles[1 - i].cancel(); // ready too, and collected with this one
        });
    }
    EXPECT_THROW(static_cast<void>(loop->watchFd(a.ends[0], EPOLLIN, [](auto) {})),
                 Pello::RuntimeException);
    EXPECT_THROW(static_cast<void>(loop->watchFd(-1, EPOLLIN, [](auto) {})),
                 Pello::RuntimeException);
    settle(loop);
    EXPECT_EQ(ran, 0);
    a.put();
    b.put();
    EXPECT_TRUE(readable(loop->fd(), 0));
    loop->runOnce(0);
    EXPECT_GE(ran, 1);
    EXPECT_NE(handles[0].active(), handles[1].active());
    const bool first = handles[0].active();
    (first ? a : b).take();
    settle(loop);
    const int before = ran;
    (first ? b : a).put(); // the cancelled one
    settle(loop);
    EXPECT_EQ(ran, before);
    (first ? a : b).put(); // level-triggered
    loop->runOnce(0);
    EXPECT_GT(ran, before);
}

TEST(Loop, AFailureEndsTheCallAndNothingElse) {
    const Loop::Ptr loop = Loop::ofThisThread();
    std::string ran;
    loop->post([&] { ran += "a"; });
    loop->post([&] {
        EXPECT_THROW(loop->runOnce(0), Pello::RuntimeException) << "nested";
        throw std::runtime_error("task");
    });
    loop->post([&] { ran += "b"; });
    EXPECT_THROW(loop->runOnce(0), std::runtime_error);
    EXPECT_EQ(ran, "a");
    loop->post([&] { ran += "c"; });
    EXPECT_TRUE(readable(loop->fd(), 0));
    settle(loop);
    EXPECT_EQ(ran, "abc");

    std::vector<Loop::Handle> timers;
    timers.push_back(loop->timer(0us, [] { throw std::runtime_error("timer"); }));
    for (int i = 0; i < 200; ++i) { // more than one call runs
        timers.push_back(loop->timer(0us, [&] { ran += "t"; }));
    }
    loop->post([&] { ran += "p"; });
    std::this_thread::sleep_for(1ms);
    EXPECT_THROW(settle(loop), std::runtime_error);
    settle(loop);
    EXPECT_EQ(std::ranges::count(ran, 't'), 200);
    EXPECT_EQ(std::ranges::count(ran, 'p'), 1);

    Pello::schedulerRootPello()->criticalPriorityTaskIs([&] { ran = "critical"; });
    EXPECT_EQ(loop->runOnce(0), 0U);
    EXPECT_EQ(ran, "critical");
}

TEST(Loop, AForkedChildHasItsOwnAndLeavesTheParents) {
    const Loop::Ptr loop = Loop::ofThisThread();
    const Pipe pipe;
    int ran = 0;
    auto watch = loop->watchFd(pipe.ends[0], EPOLLIN, [&](std::uint32_t) {
        ++ran;
        pipe.take();
    });
    auto timer = loop->timer(50ms, [&] { ++ran; });
    settle(loop);
    const TestSupport::ChildEnd end = TestSupport::inChild([&] {
        const Loop::Ptr own = Loop::ofThisThread();
        if (own == loop) throw std::runtime_error("the parent's loop");
        watch.cancel();
        timer.cancel();
        int here = 0;
        const auto task = own->timer(1ms, [&] { ++here; });
        own->post([&] { ++here; });
        if (!host(own, [&] { return here == 2; })) throw std::runtime_error("nothing ran");
        bool refused = false;
        try {
            loop->runOnce(0);
        } catch (const Pello::RuntimeException&) {
            refused = true;
        }
        if (!refused) throw std::runtime_error("the parent's loop runs");
    });
    EXPECT_EQ(end.code, 0) << end.errors;
    EXPECT_TRUE(end.exited);
    pipe.put();
    EXPECT_TRUE(host(loop, [&] { return ran == 2; })) << "ran " << ran;
}

} // namespace
