// One random driver against std::map for every shape and option set.

#include "Support.h"

#include <random>

namespace EngineTest {
namespace {

using TestSupport::openWriter;

template <class Shape>
class Driver {
  public:
    using Key = typename Shape::Key;
    using Value = ValueOf<Shape>;
    static constexpr bool kNotifying = Shape::Ops::notifying;

    Driver(const Vesk::MapDescriptor& descriptor, std::uint32_t seed)
        : descriptor_(descriptor)
        , random_(seed)
        , writer_(openWriter<Shape>("table", descriptor)) {}

    void run(std::uint32_t steps) {
        for (std::uint32_t i = 0; i < steps && !testing::Test::HasFailure(); ++i) {
            // Long phases of mostly inserting and mostly removing, for growth and halving.
            filling_ = i / 700 % 2 == 0;
            step();
            ASSERT_EQ(writer_->members(), model_.size()) << "step " << i;
            if (i % 50 == 0) compare();
            if (i % (descriptor_.localMem ? 1600U : 300U) == 299) reattach();
        }
        compare();
        std::printf("%s: %zu entries at most, %zu full, %zu buckets at most, %llu slow steps\n",
                    Shape::name, most_, refused_, mostBuckets_,
                    static_cast<unsigned long long>(slow_));
        EXPECT_GT(most_, descriptor_.fixedSize ? descriptor_.size - 1 : Shape::minimumCapacity);
        EXPECT_EQ(descriptor_.fixedSize, refused_ != 0);
        if (descriptor_.shrinkBuckets) {
            EXPECT_LT(fewestBuckets_, mostBuckets_ / 4);
        }
    }

  private:
    std::uint32_t below(std::uint32_t n) { return static_cast<std::uint32_t>(random_() % n); }
    std::uint32_t anyNumber() { return below(std::min(Shape::keys, 400U)); }

    /// A key number, mostly of an entry.
    std::uint32_t number(bool present) {
        for (int tries = 0; tries < 20; ++tries) {
            const std::uint32_t n = anyNumber();
            if ((model_.count(Shape::key(n)) != 0) == present) return n;
        }
        return anyNumber();
    }

    void step() {
        const std::uint32_t dice = below(100);
        if (dice < 45) {
            write(number(!filling_), below(4) != 0);
        } else if (dice < 60) {
            direct(number(below(2) == 0));
        } else if (dice < 70) {
            lookup(anyNumber());
        } else if (dice < 80) {
            next();
        } else {
            for (int i = filling_ ? 1 : 4; i > 0; --i) {
                remove(number(below(8) != 0));
            }
        }
        most_ = std::max<std::size_t>(most_, writer_->members());
        mostBuckets_ = std::max<std::size_t>(mostBuckets_, writer_->buckets());
        if (!filling_) {
            fewestBuckets_ = std::min<std::size_t>(fewestBuckets_, writer_->buckets());
        }
    }

    /// `changes` notifications were posted since `before`, the last one for `slot`.
    void expectNotified(std::uint64_t before, std::uint64_t changes, std::uint32_t slot) {
        if constexpr (kNotifying) {
            ASSERT_EQ(writer_->sequence(), before + changes);
            if (changes != 0) {
                EXPECT_EQ(writer_->torvu().latest(slot).sequence, before + 1);
            }
        } else {
            ASSERT_EQ(writer_->sequence(), 0U);
        }
    }

    std::vector<std::byte> image() const {
        const Mem::Mapping& mapping = writer_->slotTable().mapping();
        return {mapping.base(), mapping.base() + mapping.size()};
    }

    /// True when the table has no room for that key; an attempt changes nothing then.
    template <class Operation>
    bool refused(const Key& key, Operation operation) {
        if (!descriptor_.fixedSize || model_.size() < descriptor_.size || model_.count(key) != 0) {
            return false;
        }
        ++refused_;
        const auto before = image();
        const std::uint64_t sequence = writer_->sequence();
        EXPECT_THROW(operation(), Vesk::TableFullException);
        EXPECT_TRUE(image() == before) << "a full table was changed";
        expectNotified(sequence, 0, 0);
        return true;
    }

    void write(std::uint32_t n, bool overwrite) {
        const Key key = Shape::key(n);
        const Value value = Shape::value(n, ++generation_);
        if (refused(key, [&] { writer_->write(value, overwrite); })) return;
        const bool existed = model_.count(key) != 0;
        const bool changes = !existed || overwrite;
        const std::uint64_t sequence = writer_->sequence();
        const Value* const stored = writer_->write(value, overwrite);
        if (changes) model_[key] = generation_;
        bool found = false;
        ASSERT_EQ(writer_->lookup(key, found, nullptr), stored);
        ASSERT_TRUE(found);
        EXPECT_EQ(Shape::generation(*stored), model_[key]);
        expectNotified(sequence, changes ? 1 : 0, slotOf<Shape>(*writer_, key));
    }

    void direct(std::uint32_t n) {
        const Key key = Shape::key(n);
        const bool existed = model_.count(key) != 0;
        const Value begun = Shape::value(n, ++generation_);
        const Value final = Shape::value(n, ++generation_);
        const std::uint64_t sequence = writer_->sequence();
        Value* at = nullptr;
        if (below(2) == 0) {
            at = writer_->directUpdate(key);
            ASSERT_EQ(at != nullptr, existed);
            expectNotified(sequence, 0, 0);
            if (at == nullptr) return;
        } else {
            if (refused(key, [&] { writer_->directWrite(begun); })) return;
            at = writer_->directWrite(begun);
            EXPECT_EQ(Shape::generation(*at), Shape::generation(begun));
        }
        compose(at, final);
        // Until the commit the table shows what it showed before.
        bool found = false;
        const Value* const seen = writer_->lookup(key, found, nullptr);
        ASSERT_EQ(found, existed);
        EXPECT_EQ(Shape::generation(*seen), existed ? model_[key] : 0U);
        expectNotified(sequence, 0, 0);
        writer_->directCommit();
        model_[key] = generation_;
        expectNotified(sequence, 1, slotOf<Shape>(*writer_, key));
    }

    void remove(std::uint32_t n) {
        const Key key = Shape::key(n);
        const auto at = model_.find(key);
        const std::uint32_t slot = slotOf<Shape>(*writer_, key);
        const std::uint64_t sequence = writer_->sequence();
        Value out;
        ASSERT_EQ(writer_->remove(key, out), at != model_.end());
        expectNotified(sequence, at != model_.end() ? 1 : 0, slot);
        if (at == model_.end()) return;
        EXPECT_TRUE(out.key() == key && Shape::whole(out));
        EXPECT_EQ(Shape::generation(out), at->second);
        model_.erase(at);
    }

    void lookup(std::uint32_t n) {
        const Key key = Shape::key(n);
        const auto at = model_.find(key);
        Value buffer = Shape::value(n, 12345);
        bool found = at == model_.end();
        const Value* const value = writer_->lookup(key, found, &buffer);
        ASSERT_EQ(found, at != model_.end());
        EXPECT_EQ(value == &Shape::Ops::defaultValue(), !found);
        EXPECT_EQ(Shape::generation(*value), found ? at->second : 0U);
        // The buffer takes the default value of an absent key, and nothing of a present one.
        EXPECT_EQ(Shape::generation(buffer), found ? 12345U : 0U);
        EXPECT_TRUE(buffer.key() == (found ? key : Value().key()));
    }

    /// From any key, present or not, with any hint: of this key, of another one, or of long ago.
    void next() {
        const auto order = orderOf<Shape>(model_, writer_->hashSeed());
        for (int i = 0; i < 8; ++i) {
            Key key = Shape::key(anyNumber());
            Vesk::IterHint hint;
            if (!hints_.empty() && below(4) != 0) {
                const auto& [hintKey, known] =
                    hints_[below(static_cast<std::uint32_t>(hints_.size()))];
                hint = known;
                if (below(4) != 0) key = hintKey;
            }
            const auto following =
                std::upper_bound(order.begin(), order.end(),
                                 std::pair(Shape::Ops::rhash(key.hash(writer_->hashSeed())), key));
            Value value;
            ASSERT_EQ(writer_->next(key, value, hint), following != order.end());
            if (following == order.end()) continue;
            EXPECT_TRUE(value.key() == following->second);
            EXPECT_EQ(Shape::generation(value), model_[value.key()]);
            if (hints_.size() < 64) hints_.emplace_back();
            hints_[below(static_cast<std::uint32_t>(hints_.size()))] = {value.key(), hint};
        }
    }

    void compare() {
        EXPECT_TRUE(contentOf<Shape>(*writer_) == model_);
        EXPECT_EQ(compareRaw<Shape>(rawTableOf<Shape>(*writer_), writer_->buckets(), model_,
                                    writer_->hashSeed(), {}),
                  "");
        ASSERT_TRUE(writer_->validate());
        // At most one entry per bucket, and where buckets halve, one in four at least.
        EXPECT_LE(writer_->members(), writer_->buckets());
        if (descriptor_.shrinkBuckets && writer_->buckets() > 2) {
            EXPECT_GE(writer_->members(), writer_->buckets() / 4);
        }
    }

    void reattach() {
        const std::uint32_t seed = writer_->hashSeed();
        const SharedMem::RavoId id = writer_->ravoId();
        const std::uint32_t capacity = writer_->capacity();
        slow_ += writer_->counters().slowNexts;
        if (below(2) == 0) {
            writer_->detach(false);
            writer_->initialize("again");
        } else {
            writer_.reset();
            writer_ = openWriter<Shape>("table", descriptor_);
        }
        EXPECT_EQ(writer_->sequence(), 0U);
        if (descriptor_.localMem) {
            model_.clear();
        } else {
            EXPECT_EQ(writer_->hashSeed(), seed);
            EXPECT_TRUE(writer_->ravoId() == id);
            EXPECT_EQ(writer_->capacity(), capacity);
        }
        compare();
    }

    Vesk::MapDescriptor descriptor_;
    std::mt19937 random_;
    std::unique_ptr<TestSupport::WriterOf<Shape>> writer_;
    ModelOf<Shape> model_;
    std::vector<std::pair<Key, Vesk::IterHint>> hints_;
    std::uint32_t generation_ = 1;
    bool filling_ = true;
    std::size_t most_ = 0;
    std::size_t mostBuckets_ = 0;
    std::size_t fewestBuckets_ = ~std::size_t{0};
    std::size_t refused_ = 0;
    std::uint64_t slow_ = 0;
};

template <class Shape>
class Model : public testing::Test {
  protected:
    static void run(const Vesk::MapDescriptor& descriptor) {
        const TestSupport::TempRoot root;
        Driver<Shape> driver(descriptor, TestSupport::seedFor(Shape::name, 20240611));
        const double steps = 40000 * TestSupport::lengthFactor();
        driver.run(std::max(4000U, static_cast<std::uint32_t>(steps)));
    }
};
TYPED_TEST_SUITE(Model, Shapes, ShapeName);

TYPED_TEST(Model, Fixed) { this->run(TestSupport::fixedTable(90)); }

TYPED_TEST(Model, Growing) { this->run(TestSupport::growingTable()); }

TYPED_TEST(Model, ShrinkingBuckets) {
    Vesk::MapDescriptor descriptor = TestSupport::growingTable(100);
    descriptor.shrinkBuckets = true;
    descriptor.keepDeleted = true;
    this->run(descriptor);
}

TYPED_TEST(Model, LocalPages) {
    Vesk::MapDescriptor descriptor(1000);
    descriptor.shrinkBuckets = true;
    this->run(descriptor);
}

TYPED_TEST(Model, LocalHeap) {
    Vesk::MapDescriptor descriptor(1000);
    descriptor.heapAlloc = true;
    this->run(descriptor);
}

} // namespace
} // namespace EngineTest
