// With traces off no operation allocates or formats, and the validator survives without memory.

#include "Allocations.h"
#include "Quen/Local.h"
#include "TableFiles.h"

#include <gtest/gtest.h>

namespace ErrorsTest {
namespace {

std::size_t formatted = 0;

/// A key whose every formatting counts.
struct LoudKey {
    std::uint32_t number = 0;
    std::uint32_t pad = 0;

    std::uint32_t hash(std::uint32_t seed) const { return TestSupport::mixed(number, seed, 0); }
    friend bool operator==(const LoudKey&, const LoudKey&) = default;
    friend bool operator<(const LoudKey& a, const LoudKey& b) { return a.number < b.number; }
};

struct LoudValue {
    LoudKey theKey{};
    std::uint64_t payload = 0;

    const LoudKey& key() const { return theKey; }
};

struct LoudShape {
    using V = LoudValue;
    using Key = LoudKey;
    using Ops = MoxVesk::TableOps<V, Key, true>;
    static constexpr std::uint32_t keys = 0xFFFFFFFFU;
    static Key key(std::uint32_t number) { return {number, 0}; }
    static V value(std::uint32_t number, std::uint32_t generation) {
        return {{number, 0}, generation};
    }
};

} // namespace
} // namespace ErrorsTest

template <class T>
requires std::is_same_v<T, ErrorsTest::LoudKey> || std::is_base_of_v<ErrorsTest::LoudValue, T>
struct fmt::formatter<T> {
    static constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }
    static auto format(const T&, fmt::format_context& context) {
        ++ErrorsTest::formatted;
        return context.out();
    }
};

namespace ErrorsTest {
namespace {

template <class Shape>
struct Quiet : testing::Test {};

using Shapes = testing::Types<LoudShape, TestSupport::ErrorShape, TestSupport::MessageShape,
                              TestSupport::SessionShape, TestSupport::SpShape>;
TYPED_TEST_SUITE(Quiet, Shapes);

TYPED_TEST(Quiet, OperationsNeitherAllocateNorFormat) {
    const TestSupport::TempRoot root;
    const auto writer = TestSupport::openWriter<TypeParam>("t", TestSupport::growingTable());
    const auto entries = std::min<std::uint32_t>(TypeParam::keys - 56, 1000);
    for (std::uint32_t i = 0; i < entries; ++i) {
        writer->write(TypeParam::value(i, 0), true);
    }
    const TestSupport::TraceCapture capture(0);
    const auto rounds = static_cast<std::uint32_t>(1e6 * TestSupport::lengthFactor() / 8);
    typename TypeParam::Ops::Value value;
    typename TypeParam::Ops::Value buffer;
    Vesk::IterHint hint;
    bool more = writer->first(value, hint);
    std::uint32_t hits = 0;
    std::uint32_t steps = 0;
    ASSERT_GT(allocations(), entries); // the counter counts
    const std::size_t before = allocations();
    for (std::uint32_t i = 0; i < rounds; ++i) {
        const std::uint32_t number = TestSupport::mixed(i, 1, 2) % entries;
        bool found = false;
        writer->write(TypeParam::value(number, i), true);
        writer->lookup(TypeParam::key(number), found, nullptr);
        hits += found ? 1U : 0U;
        writer->lookup(TypeParam::key(entries + i % 56), found, &buffer);
        hits += found ? 1000000U : 0U;
        writer->remove(TypeParam::key(number), buffer);
        writer->write(TypeParam::value(number, i), false);
        more = more ? writer->next(value.key(), value, hint) : writer->first(value, hint);
        steps += more ? 1U : 0U;
        *writer->directWrite(TypeParam::value(number, i)) = TypeParam::value(number, i + 1);
        writer->directCommit();
    }
    EXPECT_EQ(allocations() - before, 0U);
    EXPECT_EQ(formatted, 0U);
    EXPECT_TRUE(capture.lines().empty());
    EXPECT_EQ(hits, rounds);
    EXPECT_GT(steps, rounds / 2);
    EXPECT_EQ(writer->members(), entries);
}

TEST(Quiet, TheLoudKeyIsHeard) {
    // Otherwise the count of formatted keys above could not tell anything.
    const TestSupport::TempRoot root;
    const auto writer = TestSupport::openWriter<LoudShape>("t", TestSupport::growingTable());
    const TestSupport::TraceCapture capture(0x0200);
    writer->write(LoudShape::value(1, 1), true);
    EXPECT_GT(std::exchange(formatted, 0), 0U);
}

TEST(NoMemory, IsAFailureOfTheValidationAlone) {
    const TestSupport::TempRoot root;
    using Shape = TestSupport::ErrorShape;
    const auto writer = TestSupport::openWriter<Shape>("t", TestSupport::growingTable());
    for (std::uint32_t i = 0; i < 200; ++i) {
        writer->write(Shape::value(i, i), true);
    }
    TestSupport::TraceCapture capture(1);
    failNextAllocationOf((writer->capacity() + 63) / 64 * 8);
    EXPECT_FALSE(writer->validate());
    EXPECT_EQ(traced(capture)[0],
              fmt::format("0 Validator Vesk/Validator.validate caught: n:{} unable to resize",
                          writer->capacity()));
    EXPECT_TRUE(writer->validate());

    Quen::Local<bool> bits(100);
    bits.set(99);
    failNextAllocationOf(1);
    EXPECT_EQ(raisedBy<Pello::MemoryResourceException>([&] { bits.resize(1000); }),
              "Local Quen/Local.doResize n:1000 unable to resize");
    EXPECT_TRUE(bits.size() == 100 && bits[99]);
}

} // namespace
} // namespace ErrorsTest
