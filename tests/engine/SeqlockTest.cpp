// One mapping, one writing thread, reading threads that know of the protocol what a slot promises:
// the copy between two equal loads of the sequence word is a value of that slot and of that time.

#include "Support.h"

#include "Mem/SharedWords.h"
#include "Pello/Time.h"

#include <atomic>
#include <random>
#include <thread>

namespace EngineTest {
namespace {

constexpr std::uint32_t kSlots = 6;
constexpr std::uint32_t kKeys = 8;

struct Counts {
    std::uint64_t copies = 0;
    std::uint64_t reads = 0;
    std::uint64_t again = 0; ///< copies that were not accepted
    std::uint64_t torn = 0;
    std::uint64_t foreign = 0;   ///< the hash of another key
    std::uint64_t backwards = 0; ///< a generation older than one that was seen of the key

    std::uint64_t bad() const { return torn + foreign + backwards; }
};

template <class Shape>
class Seqlock : public testing::Test {
  protected:
    using Value = ValueOf<Shape>;
    static constexpr std::size_t kSlotSize = 16 + sizeof(Value);

    Seqlock() {
        Vesk::MapDescriptor descriptor(kSlots);
        descriptor.fixedSize = true;
        writer_ = TestSupport::openWriter<Shape>("table", descriptor);
        base_ = writer_->slotTable().mapping().base();
    }

    void writeUntilStopped() {
        std::mt19937 random(7);
        Value out;
        for (std::uint32_t generation = 1; !stop_; ++generation) {
            const auto number = static_cast<std::uint32_t>(random() % kKeys);
            const Value value = Shape::value(number, generation);
            const auto dice = random() % 16;
            if (dice == 0) {
                writer_->remove(value.key(), out);
            } else if (dice == 1) {
                direct(value);
            } else {
                bool found = false;
                writer_->lookup(value.key(), found, nullptr);
                if (found || writer_->members() < kSlots) writer_->write(value, true);
            }
            ++writes_;
        }
    }

    /// The caller of a direct operation stores into the image with plain stores. A reader may be
    /// copying from there and throws the copy away; a race all the same to the thread sanitizer.
    void direct([[maybe_unused]] const Value& value) {
#if !defined(__SANITIZE_THREAD__)
        if (Value* const at = writer_->directUpdate(value.key()); at != nullptr) {
            compose(at, value);
            writer_->directCommit();
        }
#endif
    }

    /// Copies an entry out; false when the slot holds none. Without `checked` the first copy is
    /// taken for good.
    bool read(std::uint32_t index, bool checked, Value& value, std::uint32_t& rhash,
              Counts& counts) const {
        const std::byte* const slot = base_ + 600 + kSlotSize * (index + 1);
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
            ++counts.again;
        }
        return false;
    }

    Counts readUntilStopped(bool checked) const {
        Counts counts;
        std::array<std::uint32_t, kKeys> newest{};
        Value value;
        std::uint32_t rhash = 0;
        for (std::uint32_t index = 0; !stop_; index = (index + 1) % kSlots) {
            if (!read(index, checked, value, rhash, counts)) continue;
            ++counts.reads;
            const std::uint32_t number = value.key().entryId;
            if (!Shape::whole(value) || number >= kKeys || !(value.key() == Shape::key(number))) {
                ++counts.torn;
                continue;
            }
            if (rhash != Shape::Ops::rhash(value.key().hash(writer_->hashSeed()))) {
                ++counts.foreign;
            }
            if (Shape::generation(value) < newest[number]) ++counts.backwards;
            newest[number] = Shape::generation(value);
        }
        return counts;
    }

    /// Runs one writer and two readers for a while, at most `seconds`.
    Counts run(bool checked, double seconds) {
        Counts counts[2];
        std::thread writer([this] {
            // Now and then the writer stands still between two stores.
            Mem::stopHook = [](Mem::StopPoint) {
                static std::uint32_t passes = 0;
                if (++passes % 61 == 0) std::this_thread::yield();
            };
            writeUntilStopped();
            Mem::stopHook = nullptr;
        });
        std::thread first([&] { counts[0] = readUntilStopped(checked); });
        std::thread second([&] { counts[1] = readUntilStopped(checked); });
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
        stop_ = true;
        writer.join();
        first.join();
        second.join();
        stop_ = false;
        for (auto field : {&Counts::reads, &Counts::again, &Counts::torn, &Counts::foreign,
                           &Counts::backwards}) {
            counts[0].*field += counts[1].*field;
        }
        std::printf("%s, %s: %llu reads, %llu copies not accepted, %llu torn, %llu foreign, "
                    "%llu backwards; %llu changes\n",
                    Shape::name, checked ? "checked" : "unchecked",
                    static_cast<unsigned long long>(counts[0].reads),
                    static_cast<unsigned long long>(counts[0].again),
                    static_cast<unsigned long long>(counts[0].torn),
                    static_cast<unsigned long long>(counts[0].foreign),
                    static_cast<unsigned long long>(counts[0].backwards),
                    static_cast<unsigned long long>(writes_));
        return counts[0];
    }

    std::unique_ptr<TestSupport::WriterOf<Shape>> writer_;
    const std::byte* base_ = nullptr;
    std::atomic<bool> stop_{false};
    std::uint64_t writes_ = 0;
};

using LargeShapes = testing::Types<TestSupport::SessionShape, TestSupport::SpShape>;
TYPED_TEST_SUITE(Seqlock, LargeShapes, ShapeName);

TYPED_TEST(Seqlock, ReadersSeeWholeValuesOfTheirTime) {
    const Counts counts = this->run(true, 3);
    EXPECT_GT(counts.reads, 1000U);
    EXPECT_GT(counts.again, 0U) << "no read met a rewrite";
    EXPECT_EQ(counts.bad(), 0U);
    EXPECT_TRUE(this->writer_->validate());
}

TYPED_TEST(Seqlock, AReaderThatDoesNotLookAgainSeesTornValues) {
    Counts counts;
    for (int tries = 0; tries < 20 && counts.torn == 0; ++tries) {
        counts = this->run(false, 0.5);
    }
    EXPECT_GT(counts.torn, 0U) << "the test cannot tell";
}

} // namespace
} // namespace EngineTest
