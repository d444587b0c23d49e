// A table of a million large entries; resizes that let critical tasks run; a table that is
// formatted anew.

#include "Support.h"

#include "Pello/Scheduler.h"
#include "Pello/Time.h"

#include <bit>

namespace EngineTest {
namespace {

/// The smallest integer not below a tenth more than `n` in IEEE single precision, by integers
/// alone; for n below 2^24.
std::uint32_t tenthMore(std::uint32_t n) {
    std::uint64_t product = std::uint64_t{n} * 9227469; // 1.1F is 9227469 / 2^23
    if (const int excess = static_cast<int>(std::bit_width(product)) - 24; excess > 0) {
        const std::uint64_t unit = std::uint64_t{1} << excess;
        const std::uint64_t rest = product % unit;
        product -= rest;
        const bool odd = (product & unit) != 0;
        if (2 * rest > unit || (2 * rest == unit && odd)) product += unit;
    }
    return static_cast<std::uint32_t>((product + (1U << 23U) - 1) >> 23U);
}

TEST(Million, FillIterateEmpty) {
    using Shape = TestSupport::SpShape;
    ASSERT_EQ(tenthMore(10), 11U);
    ASSERT_EQ(tenthMore(1000), 1100U);
    const auto entries = static_cast<std::uint32_t>(1'000'000 * TestSupport::lengthFactor());
    const TestSupport::TempRoot root;
    const auto writer = openWriter<Shape>("table", shrinkingTable());
    std::uint32_t capacity = writer->capacity();
    ASSERT_EQ(capacity, Shape::minimumCapacity);

    const double filling = Pello::time();
    for (std::uint32_t n = 0; n < entries; ++n) {
        writer->write(Shape::value(n, n), false);
        if (writer->capacity() == capacity) continue;
        ASSERT_EQ(n, capacity) << "grown with free slots";
        ASSERT_EQ(writer->capacity(), tenthMore(capacity));
        capacity = writer->capacity();
    }
    const double filled = Pello::time();
    EXPECT_EQ(writer->buckets(), std::bit_ceil(entries));
    const std::size_t longest = rawTableOf<Shape>(*writer).longestChain();
    EXPECT_LE(longest, 12U);
    EXPECT_TRUE(writer->validate());
    const auto counters = writer->writerCounters();

    const double iterating = Pello::time();
    std::uint32_t visited = 0;
    std::uint32_t last = 0;
    ValueOf<Shape> value;
    Vesk::IterHint hint;
    for (bool more = writer->first(value, hint); more;
         more = writer->next(value.key(), value, hint)) {
        const std::uint32_t rhash = Shape::Ops::rhash(value.key().hash(writer->hashSeed()));
        ASSERT_LE(last, rhash);
        ASSERT_TRUE(Shape::whole(value) && Shape::generation(value) == value.key().entryId);
        last = rhash;
        ++visited;
    }
    EXPECT_EQ(visited, entries);
    EXPECT_EQ(writer->counters().slowNexts, 0U);

    const double removing = Pello::time();
    for (std::uint32_t n = 0; n < entries; ++n) {
        ASSERT_TRUE(writer->remove(Shape::key(n), value) && Shape::generation(value) == n);
    }
    const double end = Pello::time();
    EXPECT_TRUE(writer->members() == 0 && writer->buckets() == 2 && writer->validate());
    EXPECT_EQ(writer->capacity(), capacity);
    fmt::print("{} entries of {} bytes: filled in {:.2f} s, iterated in {:.2f} s, removed in "
               "{:.2f} s; {} MB, {} growths, longest chain {}\n",
               entries, sizeof(Shape::V), filled - filling, removing - iterating, end - removing,
               counters.slotsMappedSize / 1'000'000, counters.slotGrowths, longest);
}

TEST(Yielding, CriticalTasksRunBetweenTheStepsOfAResize) {
    using Shape = CrowdedShape;
    // Every fourth step of a resize takes longer than the slice after which it yields.
    Mem::stopHook = [](Mem::StopPoint point) {
        static unsigned steps = 0;
        if (point < Mem::StopPoint::bucketSplit || point == Mem::StopPoint::bucketCount) return;
        for (const double start = Pello::time(); steps % 4 == 3 && Pello::time() < start + 0.015;) {
        }
        ++steps;
    };
    for (const bool check : {true, false}) {
        const TestSupport::TempRoot root;
        Vesk::MapDescriptor descriptor = shrinkingTable();
        descriptor.criticalTaskCheck = check;
        const auto writer = openWriter<Shape>("table", descriptor);
        ModelOf<Shape> model;
        std::optional<Pending<Shape>> pending;
        unsigned runs = 0;
        bool ready = false;
        const std::function<void()> task = [&] {
            if (!ready) return;
            ++runs;
            EXPECT_TRUE(writer->slotTable().header().inCriticalSection());
            EXPECT_EQ(
                compareRaw<Shape>(rawTableOf<Shape>(*writer), model, writer->hashSeed(), pending),
                "");
            Pello::schedulerRootPello()->criticalPriorityTaskIs(task);
        };
        const auto resizeTo = [&](std::uint32_t entries, std::uint32_t buckets) {
            runs = 0;
            ValueOf<Shape> out;
            while (writer->members() != entries) {
                const bool growing = writer->members() < entries;
                const std::uint32_t n = writer->members() - (growing ? 0 : 1);
                pending = Pending<Shape>{Shape::key(n), {}, {}};
                (growing ? pending->after : pending->before) = 1;
                if (growing) {
                    writer->write(Shape::value(n, 1), true);
                    model[Shape::key(n)] = 1;
                } else {
                    writer->remove(Shape::key(n), out);
                    model.erase(Shape::key(n));
                }
            }
            EXPECT_EQ(writer->buckets(), buckets);
            return runs;
        };
        resizeTo(8, 8);
        ready = true;
        Pello::schedulerRootPello()->criticalPriorityTaskIs(task);
        // Eight buckets were split and eight were cut; then eight were joined.
        EXPECT_EQ(resizeTo(9, 16), check ? 4U : 0U);
        EXPECT_GE(writer->counters().lastBucketGrowTime, 4 * 0.015);
        EXPECT_EQ(resizeTo(3, 8), check ? 2U : 0U);
        EXPECT_GE(writer->counters().lastBucketShrinkTime, 2 * 0.015);
        writer->criticalTaskCheckIs(!check);
        EXPECT_EQ(resizeTo(9, 16), check ? 0U : 4U);
        ready = false;
        Pello::schedulerRootPello()->runCriticalPriorityTasks();
    }
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
        // The file of another identity is formatted twice, an inconsistent one once.
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
