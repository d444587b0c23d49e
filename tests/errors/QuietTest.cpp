// With traces off no operation allocates, and the validator survives without memory.

#include "Quen/Local.h"
#include "TableFiles.h"

#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations{0};
/// The next allocation of at least that many bytes fails.
std::atomic<std::size_t> failing{SIZE_MAX};

} // namespace

// Not inlined, so that the compiler takes them for a matching pair.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    void* const memory = size >= failing ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory != nullptr) return memory;
    failing = SIZE_MAX;
    throw std::bad_alloc();
}
// A sanitizer would bring its own.
void* operator new[](std::size_t size) { return operator new(size); }
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { operator delete(memory); }
void operator delete[](void* memory, std::size_t) noexcept { operator delete(memory); }

namespace ErrorsTest {
namespace {

template <class Shape>
struct Quiet : Table<Shape> {};
TYPED_TEST_SUITE(Quiet, EngineTest::Shapes, EngineTest::ShapeName);

TYPED_TEST(Quiet, OperationsDoNotAllocate) {
    this->open();
    auto& table = *this->writer;
    const auto entries = std::min<std::uint32_t>(TypeParam::keys - 56, 1000);
    this->fill(entries);
    const TraceCapture capture(0);
    const auto rounds = static_cast<std::uint32_t>(1e5 * TestSupport::lengthFactor());
    typename TestFixture::Value value;
    typename TestFixture::Value buffer;
    Vesk::IterHint hint;
    bool more = table.first(value, hint);
    std::uint32_t hits = 0;
    ASSERT_GT(allocations, 0U); // the counter counts
    const std::size_t before = allocations;
    for (std::uint32_t i = 0; i < rounds; ++i) {
        const std::uint32_t number = TestSupport::mixed(i, 1, 2) % entries;
        bool found = false;
        table.write(TypeParam::value(number, i), true);
        table.lookup(TypeParam::key(number), found, nullptr);
        hits += found ? 1 : 0;
        table.lookup(TypeParam::key(entries + i % 56), found, &buffer);
        table.remove(TypeParam::key(number), buffer);
        table.write(TypeParam::value(number, i), false);
        more = more ? table.next(value.key(), value, hint) : table.first(value, hint);
        *table.directWrite(TypeParam::value(number, i)) = TypeParam::value(number, i + 1);
        table.directCommit();
    }
    EXPECT_EQ(allocations - before, 0U);
    EXPECT_TRUE(capture.lines().empty());
    EXPECT_EQ(hits, rounds);
}

using NoMemory = Table<TestSupport::ErrorShape>;

TEST_F(NoMemory, IsAFailureOfTheValidationAlone) {
    open();
    fill(200);
    const TraceCapture capture(1);
    failing = (writer->capacity() + 63) / 64 * 8;
    EXPECT_FALSE(writer->validate());
    EXPECT_EQ(traced(capture)[0],
              fmt::format("0 Validator Vesk/Validator.validate caught: n:{} unable to resize",
                          writer->capacity()));
    EXPECT_TRUE(writer->validate());

    Quen::Local<bool> bits(100);
    bits.set(99);
    failing = 1;
    EXPECT_EQ(raisedBy<Pello::MemoryResourceException>([&] { bits.resize(1000); }),
              "Local Quen/Local.doResize n:1000 unable to resize");
    EXPECT_TRUE(bits.size() == 100 && bits[99]);
}

} // namespace
} // namespace ErrorsTest
