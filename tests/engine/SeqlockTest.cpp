// One mapping, one writing thread, reading threads that know of the protocol what a slot promises:
// the copy between two equal loads of the sequence word is a value of that slot and of that time.

#include "Support.h"

#include "Mem/SharedWords.h"

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

namespace EngineTest {
namespace {

constexpr std::uint32_t kSlots = 6;
constexpr std::uint32_t kKeys = 8;

struct Counts {
    std::uint64_t copies = 0;
    std::uint64_t reads = 0;     ///< copies that were accepted
    std::uint64_t torn = 0;      ///< not whole, or with the hash of another key
    std::uint64_t backwards = 0; ///< a generation older than one that was seen of the key
};

template <class Shape>
class Seqlock : public testing::Test {
  protected:
    using Value = ValueOf<Shape>;

    void writeUntilStopped() {
        // Now and then the writer stands still between two stores.
        Mem::stopHook = [](Mem::StopPoint) {
            static std::uint32_t passes = 0;
            if (++passes % 61 == 0) std::this_thread::yield();
        };
        std::mt19937 random(7);
        Value out;
        for (; !stop_; ++writes_) {
            const Value value = Shape::value(static_cast<std::uint32_t>(random() % kKeys), writes_);
            const auto dice = random() % 16;
            bool found = false;
            writer_->lookup(value.key(), found, nullptr);
            if (dice == 0) {
                writer_->remove(value.key(), out);
            } else if (dice == 1 && found && kDirect) {
                compose(writer_->directUpdate(value.key()), value);
                writer_->directCommit();
            } else if (found || writer_->members() < kSlots) {
                writer_->write(value, true);
            }
        }
        Mem::stopHook = nullptr;
    }

    /// Copies an entry out; false when the slot holds none. Without `checked` the first copy is
    /// taken for good.
    bool read(std::uint32_t index, bool checked, Value& value, std::uint32_t& rhash,
              Counts& counts) const {
        const std::byte* const slot = base_ + 600 + (16 + sizeof(Value)) * (index + 1);
        const auto& sequenceWord = Mem::wordAt<std::uint32_t>(slot, 8);
        for (std::uint32_t sequence = Mem::load(sequenceWord); (sequence & 1U) != 0;) {
            const std::byte* const image = (sequence & 2U) != 0 ? base_ + 600 : slot;
            rhash = Mem::load(Mem::wordAt<std::uint32_t>(image, 12));
            // A reader may be held up anywhere, whatever the load of the machine.
            constexpr std::size_t kFront = sizeof(Value) / 16 * 8;
            auto* const to = reinterpret_cast<std::byte*>(&value);
            Mem::copyOut<kFront>(to, image + 16);
            if (++counts.copies % 64 == 0) std::this_thread::yield();
            Mem::copyOut<sizeof(Value) - kFront>(to + kFront, image + 16 + kFront);
            const std::uint32_t second = checked ? Mem::load(sequenceWord) : sequence;
            if (second == sequence) return true;
            sequence = second;
        }
        return false;
    }

    void readUntilStopped(bool checked, Counts& counts) const {
        std::array<std::uint32_t, kKeys> newest{};
        Value value;
        std::uint32_t rhash = 0;
        for (std::uint32_t index = 0; !stop_; index = (index + 1) % kSlots) {
            if (!read(index, checked, value, rhash, counts)) continue;
            ++counts.reads;
            const std::uint32_t number = value.key().entryId;
            if (!Shape::whole(value) || number >= kKeys || !(value.key() == Shape::key(number)) ||
                rhash != Shape::Ops::rhash(value.key().hash(writer_->hashSeed()))) {
                ++counts.torn;
                continue;
            }
            if (Shape::generation(value) < newest[number]) ++counts.backwards;
            newest[number] = Shape::generation(value);
        }
    }

    /// Runs one writer and two readers for a while.
    Counts run(bool checked, double seconds) {
        stop_ = false;
        Counts sum;
        Counts other;
        std::thread writer([this] { writeUntilStopped(); });
        std::thread first([&] { readUntilStopped(checked, sum); });
        std::thread second([&] { readUntilStopped(checked, other); });
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
        stop_ = true;
        writer.join();
        first.join();
        second.join();
        for (const auto field :
             {&Counts::copies, &Counts::reads, &Counts::torn, &Counts::backwards}) {
            sum.*field += other.*field;
        }
        fmt::print("{}, {}: {} reads of {} copies, {} torn, {} backwards; {} changes\n",
                   Shape::name, checked ? "checked" : "unchecked", sum.reads, sum.copies, sum.torn,
                   sum.backwards, writes_);
        return sum;
    }

    /// The caller of a direct operation stores into the image with plain stores. A reader may be
    /// copying from there and throws the copy away; a race all the same to the thread sanitizer.
#if defined(__SANITIZE_THREAD__)
    static constexpr bool kDirect = false;
#else
    static constexpr bool kDirect = true;
#endif

    const TestSupport::TempRoot root_;
    const std::unique_ptr<WriterOf<Shape>> writer_ =
        openWriter<Shape>("table", TestSupport::fixedTable(kSlots));
    const std::byte* const base_ = writer_->slotTable().mapping().base();
    std::atomic<bool> stop_{false};
    std::uint32_t writes_ = 0;
};

using LargeShapes = testing::Types<TestSupport::SessionShape, TestSupport::SpShape>;
TYPED_TEST_SUITE(Seqlock, LargeShapes, ShapeName);

TYPED_TEST(Seqlock, ReadersSeeWholeValuesOfTheirTime) {
    const Counts counts = this->run(true, 3);
    EXPECT_GT(counts.reads, 1000U);
    EXPECT_GT(counts.copies, counts.reads) << "no read met a rewrite";
    EXPECT_EQ(counts.torn + counts.backwards, 0U);
    EXPECT_TRUE(this->writer_->validate());
}

TYPED_TEST(Seqlock, AReaderThatDoesNotLookAgainSeesTornValues) {
    std::uint64_t torn = 0;
    for (int tries = 0; tries < 20 && torn == 0; ++tries) {
        torn = this->run(false, 0.5).torn;
    }
    EXPECT_GT(torn, 0U) << "the test cannot tell";
}

} // namespace
} // namespace EngineTest
