// The same history twice: readers look at the table between any two stores of its writer, and the
// writer is killed at every stop point. Readers find every entry that was complete, and the next
// writer goes on with a sound table or says that it could not.

#include "Support.h"

#include <array>
#include <atomic>
#include <csignal>
#include <sys/mman.h>
#include <unistd.h>

namespace EngineTest {
namespace {

using Mem::StopPoint;

enum class Do {
    open,
    spoil, // no operation of the engine: gives the slot file another identity
    write,
    remove,
    directWrite,
    directUpdate
};

struct Step {
    Do what;
    std::uint32_t number = 0;
    std::uint32_t generation = 0;

    bool formats() const { return what == Do::open || what == Do::spoil; }
};

/// What the hooks know: how often each point was passed, where to die, how far a child came, and
/// who looks.
std::array<std::uint64_t, Mem::kStopPoints> passes;
StopPoint target;
std::uint64_t untilDeath;
std::function<void()> look;
std::atomic<std::uint32_t>& stepUnderWay =
    *new (mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
        std::atomic<std::uint32_t>;

template <class Shape>
class StopPoints : public testing::Test {
  protected:
    using Model = ModelOf<Shape>;

    StopPoints() {
        // Above the capacity and above a power of two, so that slots grow and buckets double.
        const std::uint32_t most = Shape::minimumCapacity + Shape::minimumCapacity / 8 + 2;
        steps_ = {{Do::open}};
        for (std::uint32_t n = 0; n < most; ++n) {
            steps_.push_back({n % 8 == 3 ? Do::directWrite : Do::write, n, 1});
            if (n % 8 == 2) steps_.insert(steps_.end(), {{Do::remove, n}, {Do::write, n, 2}});
            if (n % 8 == 5) steps_.push_back({Do::write, n - 1, 2});
            if (n % 8 == 6) steps_.push_back({Do::directWrite, n - 2, 3});
            if (n % 8 == 7) steps_.push_back({Do::directUpdate, n - 3, 4});
        }
        for (std::uint32_t n = 0; n + 3 < most; ++n) {
            steps_.push_back({Do::remove, n});
        }
        steps_.insert(steps_.end(), {{Do::open},
                                     {Do::write, 1, 5},
                                     {Do::spoil},
                                     {Do::open},
                                     {Do::write, 2, 6},
                                     {Do::remove, 2}});
    }
    ~StopPoints() override { Mem::stopHook = nullptr; }

    /// What the table holds after the first `count` steps.
    Model modelAfter(std::size_t count) const {
        Model model;
        for (std::size_t i = 0; i < count; ++i) {
            const Step& step = steps_[i];
            if (step.what == Do::spoil) model.clear();
            if (step.formats()) continue;
            model.erase(Shape::key(step.number));
            if (step.what != Do::remove) model[Shape::key(step.number)] = step.generation;
        }
        return model;
    }

    void run(const std::string& table) {
        stepUnderWay = 0;
        for (const Step& step : steps_) {
            const ValueOf<Shape> value = Shape::value(step.number, step.generation);
            ValueOf<Shape> out;
            if (step.formats()) writer_.reset();
            if (step.what == Do::open) writer_ = openWriter<Shape>(table, shrinkingTable());
            if (step.what == Do::spoil) {
                TestSupport::patchWord(root_.file(table, "slots"), 16, 0x12345678);
            }
            if (step.what == Do::write) writer_->write(value, true);
            if (step.what == Do::remove) writer_->remove(value.key(), out);
            if (step.what == Do::directWrite) compose(writer_->directWrite(value), value);
            if (step.what == Do::directUpdate) compose(writer_->directUpdate(value.key()), value);
            if (step.what >= Do::directWrite) writer_->directCommit();
            ++stepUnderWay;
        }
    }

    /// Takes over how far the history has come.
    void follow() {
        at_ = steps_[stepUnderWay];
        before_ = modelAfter(stepUnderWay);
        after_ = modelAfter(stepUnderWay + 1);
    }
    std::string compared(const RawTable& table) {
        const auto key = Shape::key(at_.number);
        Pending<Shape> pending{key, {}, {}};
        if (before_.contains(key)) pending.before = before_[key];
        if (after_.contains(key)) pending.after = after_[key];
        return compareRaw<Shape>(table, before_, table.hashSeed(), pending);
    }

    void expectSoundBetweenStores() {
        if (HasFailure()) return;
        follow();
        if (at_.formats()) return links_.fill({});
        const RawTable table = rawTableOf<Shape>(*writer_);
        ASSERT_EQ(compared(table), "") << "step " << stepUnderWay;
        ASSERT_LE(table.slotAt(table.numSlots()), writer_->slotTable().mapping().existingSize());
        ASSERT_LE(24 + 8 * table.numBuckets(), writer_->hashMap().buckets().existingSize());
        // One store changes one link, and raises its state.
        const auto now = table.links();
        std::size_t changed = 0;
        for (const std::size_t file : {0U, 1U}) {
            const auto& before = links_[file];
            for (std::size_t i = 0; i < std::min(before.size(), now[file].size()); ++i) {
                if (before[i] == now[file][i]) continue;
                ++changed;
                ASSERT_EQ(static_cast<std::uint32_t>(now[file][i]),
                          static_cast<std::uint32_t>(before[i]) + 4);
            }
        }
        ASSERT_LE(changed, 1U) << "step " << stepUnderWay;
        links_ = now;
    }

    void dieAt(StopPoint point, std::uint64_t pass) {
        const std::string table = fmt::format("t{}", kept_ + formatted_);
        const TestSupport::ChildEnd end = TestSupport::inChild([&] {
            target = point;
            untilDeath = pass;
            Mem::stopHook = [](StopPoint passed) {
                if (passed == target && --untilDeath == 0) kill(getpid(), SIGKILL);
            };
            run(table);
        });
        ASSERT_FALSE(end.exited) << "not reached: " << end.errors;
        ASSERT_EQ(end.code, SIGKILL) << end.errors;
        follow();
        bool flagged = false;
        if (!at_.formats()) {
            const auto slots = TestSupport::fileBytes(root_.file(table, "slots"));
            const auto buckets = TestSupport::fileBytes(root_.file(table, "buckets"));
            const RawTable raw(std::as_bytes(std::span(slots)), std::as_bytes(std::span(buckets)),
                               sizeof(typename Shape::V));
            EXPECT_EQ(compared(raw), "");
            flagged = raw.critical();
        }
        expectRecovery(table, point, flagged);
    }

    void expectRecovery(const std::string& table, StopPoint point, bool flagged) {
        const TestSupport::TraceCapture traces(0x3);
        const auto writer = openWriter<Shape>(table, shrinkingTable());
        const auto traced = [&traces](const std::string& text) {
            return traces.find(text) != nullptr;
        };
        const bool lost =
            traced(fmt::format("all entries from {}/{} will be lost", root_.path(), table));
        EXPECT_EQ(lost, traced("failed to validate existing files") ||
                            traced("failed to attach to existing files"));
        EXPECT_EQ(lost, traced("re-formatted successfully"));
        const Model content = contentOf<Shape>(*writer);
        EXPECT_TRUE(lost ? content.empty() : content == before_ || content == after_)
            << content.size() << " entries";
        ++(lost ? formatted_ : kept_);
        // The flag of an unfinished change is not believed, and nothing but it costs a table,
        // unless a value was being rewritten.
        const bool rewriting = point == StopPoint::slotValue || point == StopPoint::rewriteEnd;
        if (!at_.formats()) {
            EXPECT_TRUE(lost ? flagged || rewriting : !flagged);
        }
        EXPECT_TRUE(writer->validate());
        writer->write(Shape::value(7, 77), true);
        EXPECT_EQ(contentOf<Shape>(*writer).at(Shape::key(7)), 77U);
        writer->cleanup();
    }

    const TestSupport::TempRoot root_;
    std::vector<Step> steps_;
    std::unique_ptr<WriterOf<Shape>> writer_;
    Step at_{};
    Model before_;
    Model after_;
    std::array<std::vector<std::uint64_t>, 2> links_;
    std::uint32_t kept_ = 0;
    std::uint32_t formatted_ = 0;
};
TYPED_TEST_SUITE(StopPoints, Shapes, ShapeName);

TYPED_TEST(StopPoints, ReadersFindASoundTableAtEach) {
    const TestSupport::TraceCapture quiet(0);
    look = [this] { this->expectSoundBetweenStores(); };
    Mem::stopHook = [](StopPoint) { look(); };
    this->run("table");
    Mem::stopHook = nullptr;
    EXPECT_TRUE(contentOf<TypeParam>(*this->writer_) == this->modelAfter(this->steps_.size()));
}

TYPED_TEST(StopPoints, TheNextWriterGoesOnAfterADeathAtEach) {
    passes = {};
    Mem::stopHook = [](StopPoint point) { ++passes[static_cast<std::size_t>(point)]; };
    {
        const TestSupport::TraceCapture quiet(0);
        this->run("dry");
        this->writer_.reset();
    }
    Mem::stopHook = nullptr;
    const auto deaths = static_cast<std::uint64_t>(20 * TestSupport::lengthFactor());
    for (std::size_t point = 0; point < Mem::kStopPoints; ++point) {
        const std::uint64_t last = passes[point];
        ASSERT_NE(last, 0U) << Mem::kStopPointNames[point] << " is never passed";
        const std::uint64_t stride = std::max<std::uint64_t>(1, last / std::max(deaths, {2}));
        for (std::uint64_t pass = (last - 1) % stride + 1; pass <= last; pass += stride) {
            SCOPED_TRACE(fmt::format("{}, pass {} of {}", Mem::kStopPointNames[point], pass, last));
            this->dieAt(static_cast<StopPoint>(point), pass);
            if (testing::Test::HasFailure()) return;
        }
    }
    EXPECT_GT(this->kept_, 0U);
    EXPECT_GT(this->formatted_, 0U);
}

} // namespace
} // namespace EngineTest
