// The order of the buckets, and what a reader finds between any two stores of the writer.

#include "Support.h"

namespace EngineTest {
namespace {

using Mem::StopPoint;
using TestSupport::openWriter;

std::uint32_t reversed(std::uint32_t value, std::uint32_t bits) {
    std::uint32_t result = 0;
    for (std::uint32_t bit = 0; bit < bits; ++bit) {
        result |= (value >> bit & 1U) << (bits - 1 - bit);
    }
    return result;
}

TEST(Successor, IsTheReversedIncrement) {
    for (std::uint32_t order = 1; order <= 6; ++order) {
        const std::uint32_t n = 1U << order;
        for (std::uint32_t bucket = 0; bucket < n; ++bucket) {
            const std::uint32_t following = (reversed(bucket, order) + 1) % n;
            EXPECT_EQ(VeskCore::successorBucket(bucket, order), reversed(following, order))
                << "bucket " << bucket << " of " << n;
        }
    }
    const std::uint32_t top = 1U << 30U;
    for (const std::uint32_t bucket : {0U, 1U, top - 1, top, top + 5, 2 * top - 2, 2 * top - 1}) {
        const auto following =
            static_cast<std::uint32_t>((std::uint64_t{reversed(bucket, 31)} + 1) % (2ULL * top));
        EXPECT_EQ(VeskCore::successorBucket(bucket, 31), reversed(following, 31)) << bucket;
    }
    // One bucket follows itself; an order beyond the width of an index counts as one bucket.
    EXPECT_EQ(VeskCore::successorBucket(0, 0), 0U);
    EXPECT_EQ(VeskCore::successorBucket(0, 32), 0U);
}

/// How a bucket's chain ends.
template <class Shape>
std::uint32_t endOfChain(const TestSupport::WriterOf<Shape>& writer, std::uint32_t bucket) {
    const RawTable table = rawTableOf<Shape>(writer);
    std::uint32_t next = table.nextOfBucket(bucket);
    while (next < 0x80000000U) {
        next = table.nextOfSlot(next);
    }
    return next;
}

template <class Shape>
class Structure : public testing::Test {};
TYPED_TEST_SUITE(Structure, Shapes, ShapeName);

TYPED_TEST(Structure, DoublingTwoBucketsToFour) {
    const TestSupport::TempRoot root;
    const auto writer = openWriter<TypeParam>("table", TestSupport::growingTable());
    writer->write(TypeParam::value(0, 1), true);
    writer->write(TypeParam::value(3, 1), true);
    ASSERT_EQ(writer->buckets(), 2U);
    EXPECT_EQ(endOfChain<TypeParam>(*writer, 0), 0x80000001U);
    EXPECT_EQ(endOfChain<TypeParam>(*writer, 1), 0xFFFFFFFFU);
    writer->write(TypeParam::value(6, 1), true);
    ASSERT_EQ(writer->buckets(), 4U);
    EXPECT_EQ(endOfChain<TypeParam>(*writer, 0), 0x80000002U);
    EXPECT_EQ(endOfChain<TypeParam>(*writer, 2), 0x80000001U);
    EXPECT_EQ(endOfChain<TypeParam>(*writer, 1), 0x80000003U);
    EXPECT_EQ(endOfChain<TypeParam>(*writer, 3), 0xFFFFFFFFU);
}

/// Looks at the table at every stop point of its writer, as a reader might that came by just then.
template <class Shape>
class StoreWatch {
  public:
    explicit StoreWatch(TestSupport::WriterOf<Shape>& writer)
        : writer_(writer) {
        watch_ = this;
        Mem::stopHook = [](StopPoint point) { watch_->look(point); };
    }
    ~StoreWatch() { Mem::stopHook = nullptr; }
    StoreWatch(const StoreWatch&) = delete;
    StoreWatch& operator=(const StoreWatch&) = delete;

    /// Runs an operation on a key that has `after` as its generation afterwards.
    template <class Operation>
    void during(const typename Shape::Key& key, std::optional<std::uint32_t> after,
                Operation operation) {
        const auto at = model_.find(key);
        pending_.emplace(Pending<Shape>{key, std::nullopt, after});
        if (at != model_.end()) pending_->before = at->second;
        operation();
        pending_.reset();
        if (after) model_[key] = *after;
        if (!after) model_.erase(key);
        look(StopPoint::count_);
    }

    std::uint64_t looks() const { return looks_; }

  private:
    void look(StopPoint point) {
        if (testing::Test::HasFailure()) return;
        ++looks_;
        const RawTable table = rawTableOf<Shape>(writer_);
        const auto name = point == StopPoint::count_
                              ? std::string_view("the end")
                              : Mem::kStopPointNames[static_cast<std::size_t>(point)];
        // A reader may have adopted the number of buckets before or after the latest resize.
        for (std::uint32_t count : {table.numBuckets(), std::max(1U, table.numBuckets() / 2)}) {
            ASSERT_EQ(compareRaw<Shape>(table, count, model_, writer_.hashSeed(), pending_), "")
                << count << " of " << table.numBuckets() << " buckets, before " << name;
        }
        const Mem::Mapping& slots = writer_.slotTable().mapping();
        ASSERT_LE(writer_.slotTable().fileSize(table.numSlots()), slots.existingSize());
        ASSERT_LE(24 + 8 * table.numBuckets(), writer_.hashMap().buckets().existingSize());
        changedLinks_ = 0;
        compareLinks(slotLinks_, table.slotLinks());
        compareLinks(bucketLinks_, table.bucketLinks());
        ASSERT_LE(changedLinks_, 1U) << "links changed by one store, before " << name;
        slotLinks_ = table.slotLinks();
        bucketLinks_ = table.bucketLinks();
    }

    void compareLinks(const std::vector<std::uint64_t>& before,
                      const std::vector<std::uint64_t>& now) {
        for (std::size_t i = 0; i < std::min(before.size(), now.size()); ++i) {
            if (before[i] == now[i]) continue;
            ++changedLinks_;
            EXPECT_EQ(static_cast<std::uint32_t>(now[i]),
                      static_cast<std::uint32_t>(before[i]) + 4);
        }
    }

    static inline StoreWatch* watch_ = nullptr;
    TestSupport::WriterOf<Shape>& writer_;
    ModelOf<Shape> model_;
    std::optional<Pending<Shape>> pending_;
    std::vector<std::uint64_t> slotLinks_;
    std::vector<std::uint64_t> bucketLinks_;
    std::size_t changedLinks_ = 0;
    std::uint64_t looks_ = 0;
};

TYPED_TEST(Structure, HoldsBetweenAnyTwoStores) {
    const TestSupport::TempRoot root;
    const auto writer = openWriter<TypeParam>("table", shrinkingTable());
    const std::uint32_t minimum = writer->capacity();
    // Above the capacity and above a power of two, so that slots grow and buckets double.
    const std::uint32_t entries = minimum + std::max(3U, minimum / 8);
    StoreWatch<TypeParam> watch(*writer);
    ValueOf<TypeParam> out;
    for (std::uint32_t n = 0; n < entries; ++n) {
        watch.during(TypeParam::key(n), 1, [&] { writer->write(TypeParam::value(n, 1), true); });
        if (n % 5 == 4) {
            watch.during(TypeParam::key(n / 2), n,
                         [&] { writer->write(TypeParam::value(n / 2, n), true); });
        }
        if (n % 7 == 6) {
            watch.during(TypeParam::key(n - 3), std::nullopt,
                         [&] { writer->remove(TypeParam::key(n - 3), out); });
            watch.during(TypeParam::key(n - 3), n, [&] {
                writer->directWrite(TypeParam::value(n - 3, n));
                writer->directCommit();
            });
        }
    }
    const std::uint32_t most = writer->buckets();
    EXPECT_GT(writer->capacity(), minimum);
    EXPECT_GT(most, minimum);
    for (std::uint32_t n = 0; n < entries; ++n) {
        watch.during(TypeParam::key(n), std::nullopt,
                     [&] { ASSERT_TRUE(writer->remove(TypeParam::key(n), out)); });
    }
    EXPECT_LE(writer->buckets(), 4U);
    EXPECT_TRUE(writer->validate());
    std::printf("%s: %llu looks, %u slots, %u buckets at most\n", TypeParam::name,
                static_cast<unsigned long long>(watch.looks()), writer->capacity(), most);
}

TEST(Chains, StayShortForEveryMessageOfManyInterfaces) {
    using Shape = TestSupport::MessageShape;
    const TestSupport::TempRoot root;
    const auto writer = openWriter<Shape>("table", TestSupport::growingTable(5632));
    constexpr Rsvp::RsvpMsgType types[] = {
        Rsvp::rsvpPathMsg,     Rsvp::rsvpResvMsg,     Rsvp::rsvpPathErrMsg,  Rsvp::rsvpResvErrMsg,
        Rsvp::rsvpPathTearMsg, Rsvp::rsvpResvTearMsg, Rsvp::rsvpResvConfMsg, Rsvp::rsvpBundleMsg,
        Rsvp::rsvpAckMsg,      Rsvp::rsvpSrefreshMsg, Rsvp::rsvpHelloMsg};
    for (std::uint64_t interface = 1; interface <= 512; ++interface) {
        for (const Rsvp::RsvpMsgType type : types) {
            writer->write(Shape::V({Wirra::IntfId(interface), type}, 1), true);
        }
    }
    ASSERT_EQ(writer->members(), 5632U);
    EXPECT_EQ(writer->buckets(), 8192U);
    const std::size_t longest = rawTableOf<Shape>(*writer).longestChain();
    std::printf("longest chain %zu\n", longest);
    EXPECT_LE(longest, 8U);
}

} // namespace
} // namespace EngineTest
