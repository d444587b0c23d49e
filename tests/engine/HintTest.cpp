// What `next` makes of hints that are old, foreign or none: the same answer, at the price of a
// walk.

#include "Support.h"

namespace EngineTest {
namespace {

template <class Shape>
class Hints : public testing::Test {
  protected:
    using Key = typename Shape::Key;
    using Held = std::vector<std::pair<Key, Vesk::IterHint>>;

    void write(std::uint32_t number, std::uint32_t generation) {
        writer_->write(Shape::value(number, generation), true);
        model_[Shape::key(number)] = generation;
    }
    void remove(std::uint32_t number) {
        ValueOf<Shape> out;
        ASSERT_TRUE(writer_->remove(Shape::key(number), out));
        model_.erase(Shape::key(number));
    }
    void entriesAre(std::uint32_t count) {
        while (writer_->members() < count) {
            write(writer_->members(), 1);
        }
        while (writer_->members() > count) {
            remove(writer_->members() - 1);
        }
    }

    /// Every entry with the hint that iteration had when it stood there.
    Held hints() const {
        Held held;
        ValueOf<Shape> value;
        Vesk::IterHint hint;
        for (bool more = writer_->first(value, hint); more;
             more = writer_->next(value.key(), value, hint)) {
            held.emplace_back(value.key(), hint);
        }
        return held;
    }

    /// One step from `key`; its cost in walks.
    std::uint64_t step(const Key& key, Vesk::IterHint hint) {
        const std::uint64_t before = writer_->writerCounters().slowNexts;
        ValueOf<Shape> value;
        expectNext<Shape>(*writer_, model_, key, hint, value);
        return writer_->writerCounters().slowNexts - before;
    }

    const TestSupport::TempRoot root_;
    std::unique_ptr<WriterOf<Shape>> writer_ = openWriter<Shape>("table", shrinkingTable());
    ModelOf<Shape> model_;
};
TYPED_TEST_SUITE(Hints, Shapes, ShapeName);

TYPED_TEST(Hints, CostNothingForTheirKeyWhileItsSlotStays) {
    this->entriesAre(20);
    const auto held = this->hints();
    for (std::uint32_t n = 0; n < 20; n += 2) {
        this->write(n, 2);
    }
    // A slot with the sequence of a hint may hold another key: numbers repeat after a re-format,
    // and all first fills look alike.
    for (const auto& [hintKey, hint] : held) {
        for (std::uint32_t n = 0; n < 25; ++n) {
            const auto key = TypeParam::key(n);
            EXPECT_EQ(this->step(key, hint), key == hintKey && n % 2 != 0 ? 0U : 1U);
            EXPECT_EQ(this->step(key, {}), 1U);
        }
    }
}

TYPED_TEST(Hints, OfBucketsThatAreGoneOrWereCut) {
    std::vector<typename TestFixture::Held> held;
    for (const std::uint32_t entries : {8U, 9U, 17U, 33U, 20U, 7U, 3U, 16U, 32U, 65U, 1U}) {
        this->entriesAre(entries);
        held.push_back(this->hints());
        for (const auto& each : held) {
            for (const auto& [key, hint] : each) {
                this->step(key, hint);
            }
        }
    }
}

} // namespace
} // namespace EngineTest
