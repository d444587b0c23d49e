// Arguments that lie in the table itself, while it changes or moves.

#include "Support.h"

#include <sys/mman.h>
#include <unistd.h>

namespace EngineTest {
namespace {

using TestSupport::openWriter;

/// A page directly behind a mapping: growing across it must move the mapping.
class Wall {
  public:
    explicit Wall(const Mem::Mapping& mapping) {
        const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
        const auto end = reinterpret_cast<std::uintptr_t>(mapping.base()) + mapping.size();
        at_ = mmap(reinterpret_cast<void*>((end + page - 1) / page * page), page, PROT_NONE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    }
    ~Wall() {
        // Where something lay there already, that is the wall.
        if (at_ != MAP_FAILED) munmap(at_, static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
    }
    Wall(const Wall&) = delete;
    Wall& operator=(const Wall&) = delete;

  private:
    void* at_;
};

template <class Shape>
class Alias : public testing::Test {};
TYPED_TEST_SUITE(Alias, Shapes, ShapeName);

TYPED_TEST(Alias, ValuesAndKeysOfTheTable) {
    const TestSupport::TempRoot root;
    const auto writer = openWriter<TypeParam>("table", TestSupport::growingTable());
    ModelOf<TypeParam> model;
    for (std::uint32_t n = 0; n < 40; ++n) {
        writer->write(TypeParam::value(n, n + 1), true);
        model[TypeParam::key(n)] = n + 1;
    }
    bool found = false;
    ValueOf<TypeParam> out;
    for (std::uint32_t n = 0; n < 40; ++n) {
        writer->write(*writer->lookup(TypeParam::key(n), found, nullptr), n % 2 == 0);
        writer->directWrite(*writer->lookup(TypeParam::key(n), found, nullptr));
        writer->directCommit();
    }
    EXPECT_TRUE(contentOf<TypeParam>(*writer) == model);
    for (std::uint32_t n = 0; n < 40; n += 2) {
        const auto* const stored = writer->lookup(TypeParam::key(n), found, nullptr);
        ASSERT_TRUE(writer->remove(stored->key(), out));
        EXPECT_TRUE(out.key() == TypeParam::key(n));
        // The buffer gives the key and takes the value.
        ValueOf<TypeParam> buffer = TypeParam::value(n + 1, 999);
        ASSERT_TRUE(writer->remove(buffer.key(), buffer));
        EXPECT_EQ(TypeParam::generation(buffer), n + 2);
        EXPECT_TRUE(buffer.key() == TypeParam::key(n + 1) && TypeParam::whole(buffer));
    }
    EXPECT_EQ(writer->members(), 0U);
    EXPECT_TRUE(writer->validate());
}

/// Fills the table, whose last rewrite outlives its entry: a value in the file whose key is absent.
/// The write of that value grows the file.
template <class Shape>
void growByAnAlias(TestSupport::WriterOf<Shape>& writer, ModelOf<Shape>& model,
                   std::uint32_t& number, bool direct) {
    const auto insert = [&] {
        writer.write(Shape::value(number, 1), false);
        model[Shape::key(number++)] = 1;
    };
    while (writer.members() < writer.capacity()) {
        insert();
    }
    const std::uint32_t moved = number / 2;
    const ValueOf<Shape> value = Shape::value(moved, number);
    ValueOf<Shape> out;
    ValueOf<Shape>* const image = writer.directUpdate(value.key());
    ASSERT_NE(image, nullptr);
    compose(image, value);
    writer.directCommit();
    ASSERT_TRUE(writer.remove(value.key(), out));
    model.erase(value.key());
    insert();
    ASSERT_EQ(writer.members(), writer.capacity());
    const Wall wall(writer.slotTable().mapping());
    if (direct) {
        writer.directWrite(*image);
        writer.directCommit();
    } else {
        writer.write(*image, false);
    }
    model[value.key()] = Shape::generation(value);
    EXPECT_TRUE(contentOf<Shape>(writer) == model);
    ASSERT_TRUE(writer.validate());
}

TYPED_TEST(Alias, SurvivesAGrowthThatMovesTheFile) {
    const TestSupport::TempRoot root;
    std::uint64_t growths = 0;
    std::uint64_t moves = 0;
    // Each table has another seed, so that the new entry has other neighbours.
    for (std::uint32_t round = 0; round < 12 && !this->HasFailure(); ++round) {
        const auto writer =
            openWriter<TypeParam>(fmt::format("t{}", round), TestSupport::growingTable());
        ModelOf<TypeParam> model;
        std::uint32_t number = 0;
        while (writer->counters().remaps == 0 && number < 250 && !this->HasFailure()) {
            growByAnAlias<TypeParam>(*writer, model, number, round % 2 != 0);
        }
        EXPECT_NE(writer->counters().remaps, 0U) << "the file does not move";
        growths += writer->counters().slotGrowths;
        moves += writer->counters().remaps;
    }
    std::printf("%s: %llu of %llu growths moved the file\n", TypeParam::name,
                static_cast<unsigned long long>(moves), static_cast<unsigned long long>(growths));
}

} // namespace
} // namespace EngineTest
