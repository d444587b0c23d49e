// Trace switches, the log of the canary, clocks, critical tasks, core dumps.

#include "Environment.h"
#include "Pello/Debug.h"
#include "Pello/Scheduler.h"
#include "Pello/Time.h"
#include "Pello/Util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <thread>

namespace {

using Pello::Platform::getDebugHandler;
using Pello::Platform::traceLevelsIs;

TEST(TraceSwitch, EmitsTheLevelsOfItsMaskAndEvaluatesNothingElse) {
    const TestSupport::TraceCapture capture(0);
    const auto handler = getDebugHandler("test.levels", false);
    int evaluated = 0;
    for (const unsigned mask : {0x0000U, 0x0001U, 0x8200U, 0xFFFFU}) {
        handler->levelsIs(static_cast<std::uint16_t>(mask));
        for (unsigned level = 0; level < 16; ++level) {
            const std::size_t before = capture.lines().size();
            const int counted = evaluated;
            PELLO_TRACE(*handler, level, Pello::SourceTag("C", "S", "op"), "{}", ++evaluated);
            const bool on = (mask >> level & 1U) != 0;
            EXPECT_EQ(capture.lines().size() - before, on ? 1U : 0U) << mask << " " << level;
            EXPECT_EQ(evaluated - counted, on ? 1 : 0);
            EXPECT_TRUE(!on || capture.lines().back().level == level);
        }
    }
    EXPECT_EQ(evaluated, 0 + 1 + 2 + 16);
}

TEST(TraceSwitch, NamesShareOneHandlerAndItsLevels) {
    traceLevelsIs("", 1);
    auto a = getDebugHandler("test.a", false);
    EXPECT_EQ(a, getDebugHandler("test.a", false));
    EXPECT_EQ(a->levels(), 1); // failures are shown from the start
    traceLevelsIs("test.a", 0x0010);
    traceLevelsIs("test.later", 0x0020);
    const auto b = getDebugHandler("test.b", false);
    EXPECT_EQ(a->levels(), 0x0010);
    EXPECT_EQ(b->levels(), 1);
    EXPECT_EQ(getDebugHandler("test.later", false)->levels(), 0x0020);
    a.reset();
    EXPECT_EQ(getDebugHandler("test.a", false)->levels(), 0x0010) << "forgotten with its handler";
    getDebugHandler("test.p", true)->levelsIs(0x0100);
    getDebugHandler("test.t", false)->levelsIs(0x0100);
    EXPECT_EQ(getDebugHandler("test.p", false)->levels(), 0x0100) << "permanent, but gone";
    EXPECT_EQ(getDebugHandler("test.t", false)->levels(), 1) << "kept without a user";
    traceLevelsIs("", 0x0002);
    EXPECT_EQ(b->levels(), 2);
    EXPECT_EQ(getDebugHandler("test.later", false)->levels(), 2);
    traceLevelsIs("", 1);
}

TEST(TraceSwitch, WithoutASinkLinesGoToTheErrorStream) {
    const TestSupport::ChildEnd end = TestSupport::inChild([] {
        PELLO_TRACE(*getDebugHandler("test.h", false), 0, Pello::SourceTag("C", "S/S", "op", {}),
                    "text {}", 1);
    });
    EXPECT_EQ(end.errors, "test.h 0 C S/S.op:0 text 1\n");
}

TEST(TraceSwitch, HandleNamesComeFromTableNames) {
    using Pello::Util::traceHandleName;
    EXPECT_EQ(traceHandleName("a/b/c", "", false), "a.b.c");
    EXPECT_EQ(traceHandleName("a/b", "x/y", false), "x.y.a.b");
    getDebugHandler(traceHandleName("test/kept", "", true), false)->levelsIs(0x40);
    EXPECT_EQ(getDebugHandler("test.kept", false)->levels(), 0x40);
}

TEST(Canary, KeepsAndTracesItsLines) {
    const TestSupport::TraceCapture capture(1);
    Pello::Util::emitCanaryLog(*getDebugHandler("test.canary", false), "mounted");
    EXPECT_EQ(Pello::Util::canaryLog().back(), "mounted");
    ASSERT_NE(capture.find("mounted"), nullptr);
    EXPECT_EQ(capture.find("mounted")->level, 0U);
}

TEST(Clock, TicksAndSecondsRunAlike) {
    // Two clocks that are read one after the other drift apart when the process is held up between
    // the reads: one of several rounds has to be undisturbed.
    double best = 1;
    for (int round = 0; round < 10 && best > 0.01; ++round) {
        const double start = Pello::time();
        const std::uint64_t ticks = Pello::Rdtsc::now();
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        const double seconds = Pello::time() - start;
        const auto elapsed = static_cast<double>(Pello::Rdtsc::now() - ticks);
        best = std::min(best, std::abs(elapsed / Pello::Rdtsc::calibrationRate() / seconds - 1));
    }
    EXPECT_LT(best, 0.02);
    EXPECT_NEAR(Pello::wallTime(), static_cast<double>(std::time(nullptr)), 2);
}

TEST(CriticalTasks, RunOnceAndOnTheirOwnThread) {
    std::string ran;
    const Pello::TaskSchedulerRoot::Ptr root = Pello::schedulerRootPello();
    root->criticalPriorityTaskIs([&] {
        ran += "a";
        root->criticalPriorityTaskIs([&] { ran += "c"; });
    });
    root->criticalPriorityTaskIs([&] { ran += "b"; });
    std::thread([&] { Pello::schedulerRootPello()->runCriticalPriorityTasks(); }).join();
    EXPECT_EQ(ran, "");
    Pello::schedulerRootPello()->runCriticalPriorityTasks();
    EXPECT_EQ(ran, "ab") << "a task that a task adds waits for the next call";
    root->runCriticalPriorityTasks();
    root->runCriticalPriorityTasks();
    EXPECT_EQ(ran, "abc");
}

TEST(CoreDumps, CanIncludeSharedMemory) {
    const TestSupport::ChildEnd end = TestSupport::inChild([] {
        const char* const path = "/proc/self/coredump_filter";
        std::ofstream(path) << "0x31";
        Pello::Util::includeShmemInCore();
        unsigned filter = 0;
        std::ifstream(path) >> std::hex >> filter;
        if (filter != 0x3B) throw std::runtime_error(fmt::format("filter {:#x}", filter));
    });
    EXPECT_EQ(end.code, 0) << end.errors;
}

} // namespace
