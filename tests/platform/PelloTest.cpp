// Trace switches, clocks, critical tasks, core dumps.

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
    std::vector<unsigned> evaluated;
    std::vector<unsigned> expected;
    for (const unsigned mask : {0x0000U, 0x0001U, 0x8200U, 0xFFFFU}) {
        handler->levelsIs(static_cast<std::uint16_t>(mask));
        for (unsigned level = 0; level < 16; ++level) {
            PELLO_TRACE(*handler, level, Pello::SourceTag("C", "S", "op"), "{}",
                        evaluated.emplace_back(level));
            if ((mask >> level & 1U) != 0) expected.push_back(level);
        }
    }
    EXPECT_EQ(evaluated, expected);
    std::vector<unsigned> emitted;
    for (const auto& line : capture.lines()) {
        emitted.push_back(line.level);
    }
    EXPECT_EQ(emitted, expected);
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
        const auto handler = getDebugHandler("test.h", false);
        PELLO_TRACE(*handler, 0, Pello::SourceTag("C", "S/S", "op", {}), "text {}", 1);
        Pello::Util::emitCanaryLog(*handler, "mounted");
        if (Pello::Util::canaryLog().back() != "mounted") throw std::runtime_error("not kept");
    });
    EXPECT_EQ(end.errors.find("test.h 0 C S/S.op:0 text 1\ntest.h 0 "), 0U) << end.errors;
    EXPECT_TRUE(end.errors.ends_with(" mounted\n")) << end.errors;
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
    root->runCriticalPriorityTasks();
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
