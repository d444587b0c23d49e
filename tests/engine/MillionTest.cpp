// A table of a million large entries: filled, iterated, emptied.

#include "Support.h"

#include "Pello/Time.h"

#include <bit>

namespace EngineTest {
namespace {

using Shape = TestSupport::SpShape;

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
    ASSERT_EQ(tenthMore(10), 11U);
    ASSERT_EQ(tenthMore(64), 71U);
    ASSERT_EQ(tenthMore(128), 141U);
    ASSERT_EQ(tenthMore(1000), 1100U);

    const auto entries = static_cast<std::uint32_t>(1'000'000 * TestSupport::lengthFactor());
    const TestSupport::TempRoot root;
    Vesk::MapDescriptor descriptor = TestSupport::growingTable(entries);
    descriptor.shrinkBuckets = true;
    const auto writer = TestSupport::openWriter<Shape>("table", descriptor);
    std::uint32_t capacity = writer->capacity();
    ASSERT_EQ(capacity, Shape::minimumCapacity);

    const double start = Pello::time();
    for (std::uint32_t n = 0; n < entries; ++n) {
        writer->write(Shape::value(n, n), false);
        if (writer->capacity() == capacity) continue;
        ASSERT_EQ(n, capacity) << "grown with free slots";
        ASSERT_EQ(writer->capacity(), tenthMore(capacity));
        capacity = writer->capacity();
    }
    const double filled = Pello::time();
    const std::uint64_t growths = writer->counters().slotGrowths;
    const std::uint64_t bytes = writer->writerCounters().slotsMappedSize;
    const std::size_t longest = rawTableOf<Shape>(*writer).longestChain();
    EXPECT_EQ(writer->buckets(), std::bit_ceil(entries));
    EXPECT_LE(longest, 12U);
    EXPECT_TRUE(writer->validate());

    const double iterating = Pello::time();
    std::uint32_t visited = 0;
    std::uint32_t last = 0;
    ValueOf<Shape> value;
    Vesk::IterHint hint;
    for (bool more = writer->first(value, hint); more;
         more = writer->next(value.key(), value, hint)) {
        const std::uint32_t rhash = Shape::Ops::rhash(value.key().hash(writer->hashSeed()));
        ASSERT_LE(last, rhash);
        ASSERT_TRUE(Shape::whole(value));
        ASSERT_EQ(Shape::generation(value), value.key().entryId);
        last = rhash;
        ++visited;
    }
    EXPECT_EQ(visited, entries);
    EXPECT_EQ(writer->counters().slowNexts, 0U);

    const double removing = Pello::time();
    for (std::uint32_t n = 0; n < entries; ++n) {
        ASSERT_TRUE(writer->remove(Shape::key(n), value));
        ASSERT_EQ(Shape::generation(value), n);
    }
    const double end = Pello::time();
    EXPECT_EQ(writer->members(), 0U);
    EXPECT_EQ(writer->capacity(), capacity);
    EXPECT_EQ(writer->buckets(), 2U);
    EXPECT_TRUE(writer->validate());
    std::printf("%u entries of %zu bytes: filled in %.2f s, iterated in %.2f s, removed in %.2f s; "
                "%.0f MB, %llu growths, longest chain %zu\n",
                entries, sizeof(Shape::V), filled - start, removing - iterating, end - removing,
                static_cast<double>(bytes) * 1e-6, static_cast<unsigned long long>(growths),
                longest);
}

} // namespace
} // namespace EngineTest
