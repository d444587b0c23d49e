// What `next` makes of hints that are old, foreign or none: the same answer, at the price of a
// walk.

#include "Support.h"

namespace EngineTest {
namespace {

template <class Shape>
class Hints : public testing::Test {
  protected:
    using Key = typename Shape::Key;
    using Value = ValueOf<Shape>;
    using Held = std::vector<std::pair<Key, Vesk::IterHint>>;

    void SetUp() override { writer_ = TestSupport::openWriter<Shape>("table", shrinkingTable()); }

    void write(std::uint32_t number, std::uint32_t generation) {
        writer_->write(Shape::value(number, generation), true);
        model_[Shape::key(number)] = generation;
    }
    void fill(std::uint32_t from, std::uint32_t to) {
        for (std::uint32_t n = from; n < to; ++n) {
            write(n, 1);
        }
    }
    void remove(std::uint32_t number) {
        Value out;
        ASSERT_TRUE(writer_->remove(Shape::key(number), out));
        model_.erase(Shape::key(number));
    }

    /// Every entry with the hint that iteration had when it stood there.
    Held hints() const {
        Held held;
        Value value;
        Vesk::IterHint hint;
        for (bool more = writer_->first(value, hint); more;
             more = writer_->next(value.key(), value, hint)) {
            held.emplace_back(value.key(), hint);
        }
        return held;
    }

    void stepAll(const Held& held) {
        for (const auto& [key, hint] : held) {
            step(key, hint);
        }
    }

    /// One step from `key`; its cost in walks.
    std::uint64_t step(const Key& key, Vesk::IterHint hint) {
        const std::uint64_t before = writer_->writerCounters().slowNexts;
        const auto order = orderOf<Shape>(model_, writer_->hashSeed());
        const auto following = behind<Shape>(order, key, writer_->hashSeed());
        Value value;
        EXPECT_EQ(writer_->next(key, value, hint), following != order.end());
        if (following != order.end()) {
            EXPECT_TRUE(value.key() == following->second);
            EXPECT_EQ(Shape::generation(value), model_[following->second]);
        }
        return writer_->writerCounters().slowNexts - before;
    }

    const TestSupport::TempRoot root_;
    std::unique_ptr<TestSupport::WriterOf<Shape>> writer_;
    ModelOf<Shape> model_;
};
TYPED_TEST_SUITE(Hints, Shapes, ShapeName);

TYPED_TEST(Hints, OfTheEntryCostNothing) {
    this->fill(0, 30);
    for (const auto& [key, hint] : this->hints()) {
        EXPECT_EQ(this->step(key, Vesk::IterHint()), 1U);
        EXPECT_EQ(this->step(key, hint), 0U);
    }
}

TYPED_TEST(Hints, OfARewrittenSlotCostAWalk) {
    this->fill(0, 30);
    const auto held = this->hints();
    for (std::uint32_t n = 0; n < 30; n += 2) {
        this->write(n, 2);
    }
    for (const auto& [key, hint] : held) {
        EXPECT_EQ(this->step(key, hint), this->model_[key] == 2 ? 1U : 0U);
    }
}

TYPED_TEST(Hints, OfASlotThatAnotherKeyTookOver) {
    this->fill(0, 20);
    // A slot with the sequence of the hint that holds another key: numbers repeat after a
    // re-format, and all first fills look alike.
    for (const auto& [key, hint] : this->hints()) {
        for (std::uint32_t n = 0; n < 25; ++n) {
            EXPECT_EQ(this->step(TypeParam::key(n), hint), key == TypeParam::key(n) ? 0U : 1U);
        }
    }
    // And the slots of removed entries, free or with a new tenant.
    const auto held = this->hints();
    for (std::uint32_t n = 0; n < 20; n += 2) {
        this->remove(n);
    }
    this->stepAll(held);
    this->fill(40, 50);
    this->stepAll(held);
}

TYPED_TEST(Hints, FromBeforeAResize) {
    for (std::uint32_t from : {8U, 16U, 32U}) {
        const std::uint32_t already = static_cast<std::uint32_t>(this->model_.size());
        this->fill(already, from);
        ASSERT_EQ(this->writer_->buckets(), from);
        const auto held = this->hints();
        for (std::uint32_t entries : {from + 1, 2 * from + 1}) {
            this->fill(static_cast<std::uint32_t>(this->model_.size()), entries);
            this->stepAll(held);
        }
        ASSERT_EQ(this->writer_->buckets(), 4 * from);
        const auto wide = this->hints();
        // One halving, then two more: the hinted bucket may be gone, or longer than it was.
        for (std::uint32_t left : {from - 1, from / 4 - 1}) {
            while (this->model_.size() > left) {
                this->remove(static_cast<std::uint32_t>(this->model_.size()) - 1);
            }
            this->stepAll(wide);
        }
        ASSERT_LE(this->writer_->buckets(), from);
    }
}

TYPED_TEST(Hints, WhileEveryVisitedEntryIsChanged) {
    this->fill(0, 100);
    const auto order = orderOf<TypeParam>(this->model_, this->writer_->hashSeed());
    for (const bool removing : {false, true}) {
        std::size_t visited = 0;
        ValueOf<TypeParam> value;
        ValueOf<TypeParam> out;
        Vesk::IterHint hint;
        for (bool more = this->writer_->first(value, hint); more;
             more = this->writer_->next(value.key(), value, hint)) {
            ASSERT_LT(visited, order.size());
            ASSERT_TRUE(value.key() == order[visited++].second);
            if (removing) {
                ASSERT_TRUE(this->writer_->remove(value.key(), out));
            } else {
                this->writer_->write(value, true);
            }
        }
        EXPECT_EQ(visited, order.size());
    }
    EXPECT_EQ(this->writer_->members(), 0U);
    EXPECT_TRUE(this->writer_->validate());
}

} // namespace
} // namespace EngineTest
