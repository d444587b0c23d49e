// Resizes that let critical tasks run; a table that is formatted anew.

#include "Support.h"

#include "Pello/Scheduler.h"
#include "Pello/Time.h"

#include <bit>

namespace EngineTest {
namespace {

TEST(Yielding, CriticalTasksRunBetweenTheStepsOfAResize) {
    using Shape = CrowdedShape;
    // Every fourth step of a resize takes longer than the slice after which it yields.
    Mem::stopHook = [](Mem::StopPoint point) {
        static unsigned steps = 0;
        using enum Mem::StopPoint;
        if (point != bucketSplit && point != bucketCut && point != bucketJoin) return;
        for (const double start = Pello::time(); steps % 4 == 3 && Pello::time() < start + 0.015;) {
        }
        ++steps;
    };
    const TestSupport::TempRoot root;
    const auto writer = openWriter<Shape>("table", shrinkingTable());
    unsigned runs = 0;
    bool ready = true;
    const std::function<void()> task = [&] {
        if (!ready) return;
        ++runs;
        EXPECT_TRUE(writer->slotTable().header().inCriticalSection());
        Pello::schedulerRootPello()->criticalPriorityTaskIs(task);
    };
    const auto runsUntil = [&](std::uint32_t entries, std::uint32_t buckets) {
        runs = 0;
        ValueOf<Shape> out;
        while (writer->members() < entries) {
            writer->write(Shape::value(writer->members(), 1), true);
        }
        while (writer->members() > entries) {
            writer->remove(Shape::key(writer->members() - 1), out);
        }
        EXPECT_EQ(writer->buckets(), buckets);
        return runs;
    };
    runsUntil(8, 8);
    Pello::schedulerRootPello()->criticalPriorityTaskIs(task);
    for (const bool check : {true, false}) {
        writer->criticalTaskCheckIs(check);
        // Eight buckets are split and eight are cut; then eight are joined.
        EXPECT_EQ(runsUntil(9, 16), check ? 4U : 0U);
        EXPECT_GE(writer->counters().lastBucketGrowTime, 4 * 0.015);
        EXPECT_EQ(runsUntil(3, 8), check ? 2U : 0U);
        EXPECT_GE(writer->counters().lastBucketShrinkTime, 2 * 0.015);
    }
    ready = false;
    Pello::schedulerRootPello()->runCriticalPriorityTasks();
    Mem::stopHook = nullptr;
}

TEST(Reformat, DrawsAnotherSeedAndGoesOnWithTheVersions) {
    using Shape = TestSupport::MessageShape;
    const TestSupport::TempRoot root;
    const std::string slots = root.file("table", "slots");
    const std::string buckets = root.file("table", "buckets");
    const TestSupport::TraceCapture quiet(0);
    openWriter<Shape>("table", TestSupport::growingTable());
    for (int round = 0; round < 20; ++round) {
        const std::uint32_t seed = TestSupport::wordOf(slots, 568);
        const std::uint32_t id = TestSupport::wordOf(slots, 16);
        const std::uint32_t slotVersion = TestSupport::wordOf(slots, 576);
        const std::uint32_t bucketVersion = TestSupport::wordOf(buckets, 16);
        // Found when the files are attached, or when they are validated.
        TestSupport::patchWord(slots, round % 2 == 0 ? 16 : 556, 0x12345678);
        // Children start with the same state of the random generator, like processes do.
        const auto end =
            TestSupport::inChild([] { openWriter<Shape>("table", TestSupport::growingTable()); });
        ASSERT_TRUE(end.exited && end.code == 0) << end.errors;
        EXPECT_NE(TestSupport::wordOf(slots, 568), seed) << "round " << round;
        EXPECT_NE(TestSupport::wordOf(slots, 16), id);
        EXPECT_GT(TestSupport::wordOf(slots, 576), slotVersion);
        EXPECT_GT(TestSupport::wordOf(buckets, 16), bucketVersion);
    }
}

} // namespace
} // namespace EngineTest
