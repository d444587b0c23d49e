// One random driver against std::map for every shape and option set. Arguments may lie in the table
// itself, while it changes or moves.

#include "Support.h"

#include <random>
#include <sys/mman.h>
#include <unistd.h>

namespace EngineTest {
namespace {

template <class Shape>
class Driver {
  public:
    using Key = typename Shape::Key;
    using Value = ValueOf<Shape>;

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
        fmt::print("{} growths by a value of the table, {} files moved, {} times full\n",
                   growthsByAlias_, moves_, refused_);
        EXPECT_EQ(descriptor_.fixedSize, refused_ != 0);
        EXPECT_EQ(descriptor_.fixedSize, growthsByAlias_ == 0);
        EXPECT_EQ(descriptor_.fixedSize, moves_ == 0);
    }

  private:
    std::uint32_t below(std::size_t n) { return static_cast<std::uint32_t>(random_() % n); }
    std::uint32_t anyNumber() { return below(std::min(Shape::keys, 400U)); }

    /// A key number, mostly of an entry, or mostly of none.
    std::uint32_t number(bool present) {
        std::uint32_t n = anyNumber();
        for (int tries = 0; tries < 20 && model_.contains(Shape::key(n)) != present; ++tries) {
            n = anyNumber();
        }
        return n;
    }

    void step() {
        const std::uint32_t capacity = writer_->capacity();
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
                remove(below(4) == 0 ? rewritten_ : number(below(8) != 0));
            }
        }
        if (writer_->capacity() == capacity) return;
        growthsByAlias_ += aliased_ ? 1 : 0;
        buildWall();
    }

    /// A page directly behind the slots, where nothing else lies: the next growth across it moves
    /// the mapping.
    void buildWall() {
        if (descriptor_.localMem) return;
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const Mem::Mapping& mapping = writer_->slotTable().mapping();
        const auto end = reinterpret_cast<std::uintptr_t>(mapping.base()) + mapping.size();
        mmap(reinterpret_cast<void*>((end + page - 1) / page * page), page, PROT_NONE,
             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    }

    /// The value to write: often one that lies in the table, of an entry, or the image of some
    /// earlier change, whose key may be gone.
    const Value& source(const Value& made) {
        const auto& image =
            *reinterpret_cast<const Value*>(writer_->slotTable().mapping().base() + 600 + 16);
        const bool usable = !(image.key() == Value().key());
        const bool grows = writer_->members() == writer_->capacity();
        bool found = false;
        const Value& stored = *writer_->lookup(Shape::key(anyNumber()), found, nullptr);
        aliased_ = true;
        if (usable && !model_.contains(image.key()) && (grows || below(8) == 0)) return image;
        if (found && below(8) == 0) return stored;
        aliased_ = false;
        return made;
    }

    std::uint32_t slotOf(const Key& key) const {
        bool found = false;
        const auto* const at =
            reinterpret_cast<const std::byte*>(writer_->lookup(key, found, nullptr));
        const auto offset = static_cast<std::size_t>(at - writer_->slotTable().mapping().base());
        return found ? static_cast<std::uint32_t>((offset - 600) / (16 + sizeof(Value)) - 1) : 0;
    }

    /// What a notifying table posts: nothing, or one notification, which names the slot, and two
    /// for each entry that a shrink has moved since.
    void expectNotified(std::uint64_t before, bool changed, std::uint32_t slot) {
        const std::uint64_t moved =
            writer_->counters().moved - std::exchange(moved_, writer_->counters().moved);
        if constexpr (Shape::Ops::notifying) {
            ASSERT_EQ(writer_->sequence(), before + (changed ? 1 : 0) + 2 * moved);
            EXPECT_TRUE(!changed || slot >= writer_->capacity() ||
                        writer_->torvu().latest(slot).sequence >= before + 1);
        } else {
            ASSERT_EQ(writer_->sequence(), 0U);
        }
    }

    /// True when the table has no room for that key; an attempt changes nothing then.
    template <class Operation>
    bool refused(const Key& key, Operation operation) {
        if (!descriptor_.fixedSize || model_.size() < descriptor_.size || model_.contains(key)) {
            return false;
        }
        ++refused_;
        const Mem::Mapping& mapping = writer_->slotTable().mapping();
        const std::vector<std::byte> before(mapping.base(), mapping.base() + mapping.size());
        const std::uint64_t sequence = writer_->sequence();
        EXPECT_THROW(operation(), Vesk::TableFullException);
        EXPECT_TRUE(std::equal(before.begin(), before.end(), mapping.base())) << "changed";
        expectNotified(sequence, false, 0);
        return true;
    }

    void write(std::uint32_t n, bool overwrite) {
        const Value made = Shape::value(n, ++generation_);
        const Value& value = source(made);
        const Key key = value.key();
        if (model_.contains(key) && !aliased_) rewritten_ = n;
        if (refused(key, [&] { writer_->write(value, overwrite); })) return;
        const bool changes = overwrite || !model_.contains(key);
        if (changes) model_[key] = Shape::generation(value);
        const std::uint64_t sequence = writer_->sequence();
        const Value* const stored = writer_->write(value, overwrite);
        bool found = false;
        ASSERT_EQ(writer_->lookup(key, found, nullptr), stored);
        ASSERT_TRUE(found);
        EXPECT_EQ(Shape::generation(*stored), model_[key]);
        expectNotified(sequence, changes, slotOf(key));
    }

    void direct(std::uint32_t n) {
        const Value made = Shape::value(n, ++generation_);
        const Value& begun = source(made);
        const Key key = begun.key();
        const Value final = &begun == &made ? Value(Shape::value(n, ++generation_)) : begun;
        const std::uint32_t generation = Shape::generation(begun);
        const auto before = model_.find(key);
        if (before != model_.end() && !aliased_) rewritten_ = n;
        const std::uint64_t sequence = writer_->sequence();
        Value* at = nullptr;
        if (below(2) == 0) {
            at = writer_->directUpdate(key);
            ASSERT_EQ(at != nullptr, before != model_.end());
            if (at == nullptr) return;
        } else {
            if (refused(key, [&] { writer_->directWrite(begun); })) return;
            at = writer_->directWrite(begun);
            EXPECT_EQ(Shape::generation(*at), generation);
        }
        compose(at, final);
        // Until the commit the table shows what it showed before.
        bool found = false;
        const Value* const seen = writer_->lookup(key, found, nullptr);
        ASSERT_EQ(found, before != model_.end());
        EXPECT_EQ(Shape::generation(*seen), found ? before->second : 0U);
        expectNotified(sequence, false, 0);
        writer_->directCommit();
        model_[key] = Shape::generation(final);
        expectNotified(sequence, true, slotOf(key));
    }

    void remove(std::uint32_t n) {
        const Key key = Shape::key(n);
        const auto at = model_.find(key);
        const std::uint32_t slot = slotOf(key);
        const std::uint64_t sequence = writer_->sequence();
        // The key may be that of the entry, or of the buffer that takes the value.
        Value out = Shape::value(n, 999);
        bool found = false;
        const Value* const stored = writer_->lookup(key, found, nullptr);
        const Key& argument = found && below(2) == 0 ? stored->key() : out.key();
        ASSERT_EQ(writer_->remove(argument, out), at != model_.end());
        expectNotified(sequence, at != model_.end(), slot);
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
        for (int i = 0; i < 8; ++i) {
            auto& [hintKey, hint] = hints_[below(hints_.size())];
            if (below(8) == 0) hint = {};
            const Key key = below(4) == 0 ? Shape::key(anyNumber()) : hintKey;
            Value value;
            expectNext<Shape>(*writer_, model_, key, hint, value);
            hintKey = value.key();
        }
    }

    void compare() {
        EXPECT_TRUE(contentOf<Shape>(*writer_) == model_);
        EXPECT_EQ(compareRaw<Shape>(rawTableOf<Shape>(*writer_), model_, writer_->hashSeed()), "");
        ASSERT_TRUE(writer_->validate());
        const auto& table = writer_->slotTable();
        EXPECT_TRUE(table.shrinkThreshold() == 0 ||
                    writer_->members() >= table.shrinkThreshold() / 2);
        // At most one entry per bucket, and where buckets halve, one in four at least.
        EXPECT_LE(writer_->members(), writer_->buckets());
        EXPECT_TRUE(!descriptor_.shrinkBuckets || writer_->buckets() == 2 ||
                    writer_->members() >= writer_->buckets() / 4);
    }

    void reattach() {
        const std::uint32_t seed = writer_->hashSeed();
        const SharedMem::RavoId id = writer_->ravoId();
        const std::uint32_t capacity = writer_->capacity();
        const bool fresh = descriptor_.localMem || below(4) == 0;
        moves_ += writer_->counters().remaps;
        if (below(2) == 0) {
            writer_->detach(false);
            if (fresh) writer_->cleanup();
            writer_->initialize("again");
        } else {
            if (fresh) writer_->cleanup();
            writer_.reset();
            writer_ = openWriter<Shape>("table", descriptor_);
        }
        EXPECT_EQ(writer_->sequence(), 0U);
        moved_ = 0;
        if (fresh) {
            model_.clear();
        } else {
            EXPECT_TRUE(writer_->hashSeed() == seed && writer_->ravoId() == id);
            EXPECT_EQ(writer_->capacity(), capacity);
        }
        compare();
    }

    Vesk::MapDescriptor descriptor_;
    std::mt19937 random_;
    std::unique_ptr<WriterOf<Shape>> writer_;
    ModelOf<Shape> model_;
    std::array<std::pair<Key, Vesk::IterHint>, 64> hints_;
    std::uint32_t generation_ = 1;
    bool filling_ = true;
    bool aliased_ = false;        ///< the latest value that was written lay in the table
    std::uint32_t rewritten_ = 0; ///< the number of a key that had a value rewritten lately
    std::uint32_t growthsByAlias_ = 0;
    std::uint64_t moves_ = 0;
    std::uint64_t moved_ = 0; ///< entries by shrinks, as the writer counted when asked last
    std::uint32_t refused_ = 0;
};

template <class Shape>
class Model : public testing::Test {
  protected:
    static void run(const Vesk::MapDescriptor& descriptor) {
        const TestSupport::TempRoot root;
        Driver<Shape> driver(descriptor, TestSupport::seedFor(Shape::name, 20240611));
        const double steps = 40000 * TestSupport::lengthFactor();
        driver.run(std::max(12000U, static_cast<std::uint32_t>(steps)));
    }
};
TYPED_TEST_SUITE(Model, Shapes, ShapeName);

TYPED_TEST(Model, Fixed) { this->run(TestSupport::fixedTable(90)); }
TYPED_TEST(Model, Growing) { this->run(TestSupport::growingTable(100)); }
TYPED_TEST(Model, Shrinking) { this->run(shrinkingTable()); }

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
