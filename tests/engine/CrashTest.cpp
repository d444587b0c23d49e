// The writer is killed at every stop point. Readers then find every entry that was complete, and
// the next writer goes on with a sound table or says that it could not.

#include "Support.h"

#include <array>
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
};

bool formats(const Step& step) { return step.what == Do::open || step.what == Do::spoil; }

template <class Shape>
class Script {
  public:
    Script() {
        const std::uint32_t most = Shape::minimumCapacity + Shape::minimumCapacity / 8 + 2;
        add({Do::open});
        for (std::uint32_t n = 0; n < most; ++n) {
            add({n % 8 == 3 ? Do::directWrite : Do::write, n, 1});
            if (n % 8 == 5) add({Do::write, n - 1, 2});
            if (n % 8 == 6) add({Do::directWrite, n - 2, 3});
            if (n % 8 == 7) add({Do::directUpdate, n - 3, 4});
        }
        for (std::uint32_t n = 0; n + 3 < most; ++n) {
            add({Do::remove, n});
        }
        add({Do::open});
        add({Do::write, 1, 5});
        add({Do::spoil});
        add({Do::open});
        add({Do::write, 2, 6});
        add({Do::remove, 2});
    }

    const std::vector<Step>& steps() const { return steps_; }

    /// What the table holds after the first `count` steps.
    ModelOf<Shape> modelAfter(std::size_t count) const {
        ModelOf<Shape> model;
        for (std::size_t i = 0; i < count; ++i) {
            const Step& step = steps_[i];
            if (step.what == Do::spoil) {
                model.clear();
            } else if (step.what == Do::remove) {
                model.erase(Shape::key(step.number));
            } else if (step.what != Do::open) {
                model[Shape::key(step.number)] = step.generation;
            }
        }
        return model;
    }

    /// Runs the steps on the table; `at` is the number of the one under way.
    void run(const TestSupport::TempRoot& root, const std::string& table,
             std::atomic<std::uint32_t>& at) const {
        std::unique_ptr<TestSupport::WriterOf<Shape>> writer;
        for (const Step& step : steps_) {
            const ValueOf<Shape> value = Shape::value(step.number, step.generation);
            ValueOf<Shape> out;
            if (formats(step)) writer.reset();
            switch (step.what) {
            case Do::open:
                writer = TestSupport::openWriter<Shape>(table, shrinkingTable());
                break;
            case Do::spoil:
                TestSupport::patchWord(root.file(table, "slots"), 16, 0x12345678);
                break;
            case Do::write:
                writer->write(value, true);
                break;
            case Do::remove:
                writer->remove(value.key(), out);
                break;
            case Do::directWrite:
                *writer->directWrite(value) = value;
                writer->directCommit();
                break;
            case Do::directUpdate:
                *writer->directUpdate(value.key()) = value;
                writer->directCommit();
                break;
            }
            ++at;
        }
    }

  private:
    void add(const Step& step) { steps_.push_back(step); }

    std::vector<Step> steps_;
};

/// What the hooks count, and what the child reports of how far it came.
std::array<std::uint64_t, Mem::kStopPoints> passes;
StopPoint target;
std::uint64_t untilDeath;

template <class Shape>
class Crash : public testing::Test {
  protected:
    using Model = ModelOf<Shape>;

    Crash()
        : at_(*new (mmap(nullptr, sizeof(std::atomic<std::uint32_t>), PROT_READ | PROT_WRITE,
                         MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<std::uint32_t>) {}
    ~Crash() override {
        munmap(&at_, sizeof at_);
        std::printf("%s: %u deaths, %u tables kept, %u formatted anew\n", Shape::name,
                    kept_ + formatted_, kept_, formatted_);
    }

    void countPasses() {
        passes = {};
        Mem::stopHook = [](StopPoint point) { ++passes[static_cast<std::size_t>(point)]; };
        at_ = 0;
        const TestSupport::TraceCapture quiet(0);
        script_.run(root_, "dry", at_);
        Mem::stopHook = nullptr;
        const auto writer = TestSupport::openWriter<Shape>("dry", shrinkingTable());
        ASSERT_TRUE(contentOf<Shape>(*writer) == script_.modelAfter(script_.steps().size()));
    }

    void dieAt(StopPoint point, std::uint64_t pass) {
        const std::string table = fmt::format("t{}", kept_ + formatted_);
        at_ = 0;
        const TestSupport::ChildEnd end = TestSupport::inChild([&] {
            target = point;
            untilDeath = pass;
            Mem::stopHook = [](StopPoint passed) {
                if (passed == target && --untilDeath == 0) kill(getpid(), SIGKILL);
            };
            script_.run(root_, table, at_);
        });
        ASSERT_FALSE(end.exited) << "not reached: " << end.errors;
        ASSERT_EQ(end.code, SIGKILL) << end.errors;
        const Step step = script_.steps()[at_];
        if (!formats(step)) expectReadable(table);
        expectRecovery(table, point);
    }

    /// A reader of the dead writer's files, for either number of buckets that it may have adopted.
    void expectReadable(const std::string& table) {
        const auto slots = TestSupport::fileBytes(root_.file(table, "slots"));
        const auto buckets = TestSupport::fileBytes(root_.file(table, "buckets"));
        const RawTable raw(std::as_bytes(std::span(slots)), std::as_bytes(std::span(buckets)),
                           sizeof(typename Shape::V));
        const std::uint32_t seed = TestSupport::wordOf(root_.file(table, "slots"), 568);
        const Model before = script_.modelAfter(at_);
        const Model after = script_.modelAfter(at_ + 1);
        const auto key = Shape::key(script_.steps()[at_].number);
        Pending<Shape> pending{key, {}, {}};
        if (before.count(key) != 0) pending.before = before.at(key);
        if (after.count(key) != 0) pending.after = after.at(key);
        for (std::uint32_t count : {raw.numBuckets(), std::max(1U, raw.numBuckets() / 2)}) {
            EXPECT_EQ(compareRaw<Shape>(raw, count, before, seed, pending), "")
                << count << " of " << raw.numBuckets() << " buckets";
        }
        flagged_ = raw.critical();
    }

    void expectRecovery(const std::string& table, StopPoint point) {
        const TestSupport::TraceCapture traces(0x3);
        const auto writer = TestSupport::openWriter<Shape>(table, shrinkingTable());
        const bool lost = traces.find(fmt::format("all entries from {} will be lost",
                                                  root_.path() + "/" + table)) != nullptr;
        const bool why = traces.find("failed to validate existing files") != nullptr ||
                         traces.find("failed to attach to existing files") != nullptr;
        EXPECT_EQ(lost, why);
        EXPECT_EQ(lost, traces.find("re-formatted successfully") != nullptr);
        const Model content = contentOf<Shape>(*writer);
        if (lost) {
            EXPECT_TRUE(content.empty());
            ++formatted_;
        } else {
            EXPECT_TRUE(content == script_.modelAfter(at_) ||
                        content == script_.modelAfter(at_ + 1))
                << content.size() << " entries, silently";
            ++kept_;
        }
        // The flag of an unfinished change is not believed, and nothing but it costs a table,
        // unless a value was being rewritten.
        const bool rewriting = point == StopPoint::slotValue || point == StopPoint::rewriteEnd;
        if (!formats(script_.steps()[at_])) {
            EXPECT_TRUE(lost || !flagged_);
            EXPECT_TRUE(!lost || flagged_ || rewriting);
        }
        EXPECT_TRUE(writer->validate());
        writer->write(Shape::value(7, 77), true);
        bool found = false;
        EXPECT_EQ(Shape::generation(*writer->lookup(Shape::key(7), found, nullptr)), 77U);
        writer->cleanup();
    }

    const TestSupport::TempRoot root_;
    const Script<Shape> script_;
    std::atomic<std::uint32_t>& at_;
    bool flagged_ = false;
    std::uint32_t kept_ = 0;
    std::uint32_t formatted_ = 0;
};
TYPED_TEST_SUITE(Crash, Shapes, ShapeName);

TYPED_TEST(Crash, AtEveryStopPoint) {
    this->countPasses();
    const auto deaths = static_cast<std::uint64_t>(20 * TestSupport::lengthFactor());
    for (std::size_t point = 0; point < Mem::kStopPoints; ++point) {
        ASSERT_NE(passes[point], 0U) << Mem::kStopPointNames[point] << " is never passed";
        const std::uint64_t last = passes[point];
        const std::uint64_t stride = std::max<std::uint64_t>(1, last / std::max(deaths, {2}));
        for (std::uint64_t pass = 1; pass <= last; pass += stride) {
            SCOPED_TRACE(fmt::format("{}, pass {} of {}", Mem::kStopPointNames[point], pass, last));
            this->dieAt(static_cast<StopPoint>(point), pass);
            if (testing::Test::HasFailure()) return;
        }
        this->dieAt(static_cast<StopPoint>(point), last);
    }
    EXPECT_GT(this->kept_, 0U);
    EXPECT_GT(this->formatted_, 0U);
}

} // namespace
} // namespace EngineTest
