// Long resizes let critical tasks run; a table that is formatted anew hashes otherwise than before.

#include "Support.h"

#include "Pello/Scheduler.h"
#include "Pello/Time.h"

#include <cstdlib>

namespace EngineTest {
namespace {

using Mem::StopPoint;
using Shape = CrowdedShape;

/// Makes every fourth step of a resize longer than the slice after which it yields.
class SlowResizes {
  public:
    SlowResizes() {
        Mem::stopHook = [](StopPoint point) {
            if (point != StopPoint::bucketSplit && point != StopPoint::bucketCut &&
                point != StopPoint::bucketJoin) {
                return;
            }
            static unsigned steps = 0;
            if (++steps % 4 != 0) return;
            const double until = Pello::time() + 0.015;
            while (Pello::time() < until) {
            }
        };
    }
    ~SlowResizes() { Mem::stopHook = nullptr; }
    SlowResizes(const SlowResizes&) = delete;
    SlowResizes& operator=(const SlowResizes&) = delete;
};

TEST(Yielding, CriticalTasksRunBetweenTheStepsOfAResize) {
    for (const bool check : {true, false}) {
        const TestSupport::TempRoot root;
        Vesk::MapDescriptor descriptor = shrinkingTable();
        descriptor.criticalTaskCheck = check;
        const auto writer = TestSupport::openWriter<Shape>("table", descriptor);
        ModelOf<Shape> model;
        for (std::uint32_t n = 0; n < 8; ++n) {
            writer->write(Shape::value(n, 1), true);
            model[Shape::key(n)] = 1;
        }
        ASSERT_EQ(writer->buckets(), 8U);
        unsigned runs = 0;
        bool ready = true;
        std::optional<Pending<Shape>> pending;
        const std::function<void()> task = [&] {
            if (!ready) return;
            ++runs;
            EXPECT_TRUE(writer->slotTable().header().inCriticalSection());
            const RawTable table = rawTableOf<Shape>(*writer);
            EXPECT_EQ(
                compareRaw<Shape>(table, table.numBuckets(), model, writer->hashSeed(), pending),
                "");
            Pello::schedulerRootPello()->criticalPriorityTaskIs(task);
        };
        Pello::schedulerRootPello()->criticalPriorityTaskIs(task);

        const auto slow = std::make_unique<SlowResizes>();
        pending = Pending<Shape>{Shape::key(8), {}, 1};
        writer->write(Shape::value(8, 1), true);
        ASSERT_EQ(writer->buckets(), 16U);
        // Eight buckets were split and eight were cut.
        EXPECT_EQ(runs, check ? 4U : 0U);
        EXPECT_GE(writer->counters().lastBucketGrowTime, 4 * 0.015);

        runs = 0;
        ValueOf<Shape> out;
        model[Shape::key(8)] = 1;
        for (std::uint32_t n = 8; n >= 3; --n) {
            pending = Pending<Shape>{Shape::key(n), 1, {}};
            ASSERT_EQ(runs, 0U);
            writer->remove(Shape::key(n), out);
            model.erase(Shape::key(n));
        }
        ASSERT_EQ(writer->buckets(), 8U);
        EXPECT_EQ(runs, check ? 2U : 0U);
        // The flag can be changed at any time.
        runs = 0;
        pending.reset();
        writer->criticalTaskCheckIs(!check);
        for (std::uint32_t n = 3; n < 9; ++n) {
            pending = Pending<Shape>{Shape::key(n), {}, 1};
            writer->write(Shape::value(n, 1), true);
            model[Shape::key(n)] = 1;
        }
        ASSERT_EQ(writer->buckets(), 16U);
        EXPECT_EQ(runs, check ? 0U : 4U);
        ready = false;
        Pello::schedulerRootPello()->runCriticalPriorityTasks();
    }
}

/// Gives the slot file another identity: the next writer formats it anew.
void spoil(const TestSupport::TempRoot& root) {
    TestSupport::patchWord(root.file("table", "slots"), 16, 0x12345678);
}

TEST(Reformat, DrawsAnotherSeedAndGoesOnWithTheVersions) {
    const TestSupport::TempRoot root;
    const std::string slots = root.file("table", "slots");
    const std::string buckets = root.file("table", "buckets");
    const TestSupport::TraceCapture quiet(0);
    TestSupport::openWriter<Shape>("table", TestSupport::growingTable());
    for (int round = 0; round < 20; ++round) {
        const std::uint32_t seed = TestSupport::wordOf(slots, 568);
        const std::uint32_t id = TestSupport::wordOf(slots, 16);
        const std::uint32_t slotVersion = TestSupport::wordOf(slots, 576);
        const std::uint32_t bucketVersion = TestSupport::wordOf(buckets, 16);
        spoil(root);
        // Children start with the same state of the random generator, like processes do.
        const auto end = TestSupport::inChild(
            [] { TestSupport::openWriter<Shape>("table", TestSupport::growingTable()); });
        ASSERT_TRUE(end.exited && end.code == 0) << end.errors;
        EXPECT_NE(TestSupport::wordOf(slots, 568), seed) << "round " << round;
        EXPECT_NE(TestSupport::wordOf(slots, 16), id);
        EXPECT_GT(TestSupport::wordOf(slots, 576), slotVersion);
        EXPECT_GT(TestSupport::wordOf(buckets, 16), bucketVersion);
    }
}

} // namespace
} // namespace EngineTest
