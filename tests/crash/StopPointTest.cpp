// The same history twice: a reader looks at the table between any two stores of its writer, and the
// writer is killed at the stop points of every operation, with readers of other processes attached.
// They find every entry that was complete, and the next writer goes on with a sound table or says
// that it could not. docs/recovery.md lists what may come of each.
//
// RSVPVESK_LENGTH=1000 kills it at every passing of every point.

#include "Process.h"
#include "docs/Documents.h"
#include "engine/Support.h"

#include "Mem/RootPath.h"
#include "Pello/Time.h"

#include <array>
#include <atomic>
#include <csignal>
#include <iostream>
#include <iterator>
#include <set>
#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

namespace EngineTest {
namespace {

using Mem::StopPoint;

enum class Do {
    open,
    spoil, // no operation of the engine: gives the slot file another identity
    cleanup,
    write,
    remove,
    directWrite,
    directUpdate
};

/// As the document calls what a step does.
enum class Operation : std::uint8_t {
    attach,
    takeOver,
    reformat,
    insert,
    overwrite,
    remove,
    directInsert,
    directOverwrite,
    directUpdate,
    detach,
    cleanUp,
    count_
};
constexpr std::array<const char*, static_cast<std::size_t>(Operation::count_)> kOperationNames = {
    "attach",        "take over",        "re-format",     "insert", "overwrite", "remove",
    "direct insert", "direct overwrite", "direct update", "detach", "clean up"};

/// A stop point in an operation.
struct Place {
    Operation operation{};
    StopPoint point{};

    friend auto operator<=>(const Place&, const Place&) = default;
    std::string text() const {
        return fmt::format("{} at {}", kOperationNames[static_cast<std::size_t>(operation)],
                           Mem::kStopPointNames[static_cast<std::size_t>(point)]);
    }
};

struct Step {
    Do what;
    std::uint32_t number = 0;
    std::uint32_t generation = 0;
    Operation operation{};

    /// The files are not those of a table between two changes.
    bool ofFiles() const { return what <= Do::cleanup; }
};

/// What the hooks know: the operation, how often it passed each point, where to die, and who looks.
Operation operation;
bool readersFollow = false;
std::map<Place, std::uint64_t> passes;
Place target;
std::uint64_t untilDeath;
std::function<void()> look;

/// How far a child came, whether it waits for a reader to attach, and whether it ends.
struct Progress {
    std::atomic<std::uint32_t> step{0};
    std::atomic<bool> waiting{false};
    std::atomic<bool> ending{false};
};
Progress& progress =
    *new (mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Progress;

void letAReaderAttach() {
    progress.waiting = true;
    while (progress.waiting) {
        usleep(50);
    }
}

/// What may come of a death: what readers find, and what the next writer makes of it.
struct Outcome {
    std::set<std::string> found;
    std::set<std::string> next;
};

template <class Shape>
class StopPoints : public testing::Test {
  protected:
    using Model = ModelOf<Shape>;

    /// Above the capacity and above a power of two, so that slots grow and buckets double.
    static constexpr std::uint32_t kKeys = Shape::minimumCapacity + Shape::minimumCapacity / 8 + 2;
    static constexpr double kAnswerSeconds = 1;

    StopPoints() {
        steps_ = {{Do::open}};
        for (std::uint32_t n = 0; n < kKeys; ++n) {
            steps_.push_back({n % 8 == 3 ? Do::directWrite : Do::write, n, 1});
            if (n % 8 == 2) steps_.insert(steps_.end(), {{Do::remove, n}, {Do::write, n, 2}});
            if (n % 8 == 5) steps_.push_back({Do::write, n - 1, 2});
            if (n % 8 == 6) steps_.push_back({Do::directWrite, n - 2, 3});
            if (n % 8 == 7) steps_.push_back({Do::directUpdate, n - 3, 4});
        }
        for (std::uint32_t n = 0; n + 3 < kKeys; ++n) {
            steps_.push_back({Do::remove, n});
        }
        steps_.insert(steps_.end(), {{Do::open},
                                     {Do::write, 1, 5},
                                     {Do::spoil},
                                     {Do::open},
                                     {Do::write, 2, 6},
                                     {Do::write, 3, 6},
                                     {Do::remove, 2}});
        steps_.insert(steps_.end(), {{Do::cleanup}, {Do::open}, {Do::write, 4, 7}});
        nameOperations();
        progress.step = 0;
    }
    ~StopPoints() override { Mem::stopHook = nullptr; }

    void nameOperations() {
        Do last = Do::cleanup;
        for (std::size_t i = 0; i < steps_.size(); ++i) {
            Step& step = steps_[i];
            const bool there = modelAfter(i).contains(Shape::key(step.number));
            const auto either = [there](Operation fresh, Operation old) {
                return there ? old : fresh;
            };
            switch (step.what) {
            case Do::open:
                step.operation = last == Do::cleanup ? Operation::attach
                                 : last == Do::spoil ? Operation::reformat
                                                     : Operation::takeOver;
                break;
            case Do::write:
                step.operation = either(Operation::insert, Operation::overwrite);
                break;
            case Do::directWrite:
                step.operation = either(Operation::directInsert, Operation::directOverwrite);
                break;
            default:
                step.operation = step.what == Do::cleanup        ? Operation::cleanUp
                                 : step.what == Do::remove       ? Operation::remove
                                 : step.what == Do::directUpdate ? Operation::directUpdate
                                                                 : Operation::detach;
                break;
            }
            last = step.what;
        }
    }

    /// What the table holds after the first `count` steps.
    Model modelAfter(std::size_t count) const {
        Model model;
        for (std::size_t i = 0; i < count; ++i) {
            const Step& step = steps_[i];
            if (step.what == Do::spoil || step.what == Do::cleanup) model.clear();
            if (step.ofFiles()) continue;
            model.erase(Shape::key(step.number));
            if (step.what != Do::remove) model[Shape::key(step.number)] = step.generation;
        }
        return model;
    }

    void run(const std::string& table) {
        for (const Step& step : steps_) {
            const ValueOf<Shape> value = Shape::value(step.number, step.generation);
            ValueOf<Shape> out;
            if (step.what == Do::open || step.what == Do::spoil) {
                operation = Operation::detach;
                writer_.reset();
            }
            operation = step.operation;
            if (step.what == Do::cleanup) writer_->cleanup();
            if (step.what == Do::open) writer_ = openWriter<Shape>(table, shrinkingTable());
            if (step.what == Do::spoil) {
                TestSupport::patchWord(root_.file(table, "slots"), 16, 0x12345678);
            }
            if (step.what == Do::write) writer_->write(value, true);
            if (step.what == Do::remove) writer_->remove(value.key(), out);
            if (step.what == Do::directWrite) compose(writer_->directWrite(value), value);
            if (step.what == Do::directUpdate) compose(writer_->directUpdate(value.key()), value);
            if (step.what >= Do::directWrite) writer_->directCommit();
            ++progress.step;
            if (readersFollow && step.what == Do::open) letAReaderAttach();
        }
    }

    /// Takes over how far the history has come.
    void follow() {
        at_ = steps_[progress.step];
        before_ = modelAfter(progress.step);
        after_ = modelAfter(progress.step + 1);
    }
    std::optional<std::uint32_t> generationIn(const Model& model, std::uint32_t number) const {
        const auto at = model.find(Shape::key(number));
        return at == model.end() ? std::nullopt : std::optional(at->second);
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
        if (at_.ofFiles()) return links_.fill({});
        const RawTable table = rawTableOf<Shape>(*writer_);
        ASSERT_EQ(compared(table), "") << "step " << progress.step;
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
        ASSERT_LE(changed, 1U) << "step " << progress.step;
        links_ = now;
    }

    void dieAt(const Place& place, std::uint64_t pass) {
        const std::string table = fmt::format("t{}", deaths_++);
        progress.step = 0;
        progress.ending = false;
        bool attached = false;
        const auto child = [&] {
            target = place;
            untilDeath = pass;
            Mem::stopHook = [](StopPoint passed) {
                if (passed != target.point || operation != target.operation) return;
                if (--untilDeath != 0) return;
                progress.ending = true;
                kill(getpid(), SIGKILL);
            };
            readersFollow = true;
            run(table);
            progress.ending = true;
        };
        const TestSupport::ChildEnd end = TestSupport::inChild(child, [&] {
            for (; !progress.ending; usleep(50)) {
                if (!progress.waiting) continue;
                EXPECT_TRUE(attached = attach(early_, table));
                wordsOf(early_);
                progress.waiting = false;
            }
        });
        ASSERT_FALSE(end.exited) << "not reached: " << end.errors;
        ASSERT_EQ(end.code, SIGKILL) << end.errors;
        follow();
        Outcome& outcome = outcomes_[place];
        if (attached) {
            expectRead(early_, place, mapped(), outcome);
        }
        bool flagged = false;
        if (!at_.ofFiles()) {
            const auto slots = TestSupport::fileBytes(root_.file(table, "slots"));
            const auto buckets = TestSupport::fileBytes(root_.file(table, "buckets"));
            const RawTable raw(std::as_bytes(std::span(slots)), std::as_bytes(std::span(buckets)),
                               sizeof(typename Shape::V));
            EXPECT_EQ(compared(raw), "");
            flagged = raw.critical();
        }
        // One that comes now finds what those find that were there, or no table.
        if (attach(late_, table)) {
            expectRead(late_, place, before_, outcome);
        } else {
            EXPECT_TRUE(at_.ofFiles());
            outcome.found.insert("no table");
        }
        expectRecovery(table, place, flagged, outcome);
        if (!attached) return;
        wordsOf(early_); // whatever it finds now, it answers
    }

    /// What the files hold that readers have mapped.
    Model mapped() const {
        const std::size_t step = progress.step;
        const bool removed = at_.what == Do::open && step > 0 && steps_[step - 1].ofFiles();
        return modelAfter(removed ? step - 1 : step);
    }

    bool attach(TestSupport::Process& reader, const std::string& table) {
        return reader.tell("attach " + table, kAnswerSeconds) == "ok";
    }
    std::vector<std::string> wordsOf(TestSupport::Process& reader) {
        const double began = Pello::time();
        std::istringstream answer(reader.tell("look", kAnswerSeconds));
        slowest_ = std::max(slowest_, Pello::time() - began);
        std::vector<std::string> words{std::istream_iterator<std::string>(answer), {}};
        EXPECT_EQ(words.size(), 2 * kKeys) << "the reader is gone";
        return words;
    }

    /// A reader finds what was there, and the key of the operation as before or as after it. While
    /// a table is formatted anew, it finds what was there, nothing, or that the table is corrupt.
    void expectRead(TestSupport::Process& reader, const Place& place, const Model& before,
                    Outcome& outcome) {
        const std::vector<std::string> words = wordsOf(reader);
        const auto wordIn = [this](const Model& model, std::uint32_t number) {
            const auto generation = generationIn(model, number);
            return generation ? std::to_string(*generation) : "-";
        };
        for (std::size_t i = 0; i < words.size(); ++i) {
            const auto number = static_cast<std::uint32_t>(i % kKeys);
            const std::string was = wordIn(before, number);
            const bool changes = !at_.ofFiles() && number == at_.number;
            if (words[i] == was) {
                if (at_.ofFiles()) outcome.found.insert("kept");
                if (changes && was != wordIn(after_, number)) outcome.found.insert("before");
            } else if (changes && words[i] == wordIn(after_, number)) {
                outcome.found.insert("after");
            } else if (place.operation == Operation::reformat && words[i] == "-") {
                outcome.found.insert("absent");
            } else if (place.operation == Operation::reformat && words[i] == "x") {
                outcome.found.insert("corrupt");
            } else {
                FAIL() << "key " << number << ": " << words[i] << ", was " << was;
            }
        }
    }

    void expectRecovery(const std::string& table, const Place& place, bool flagged,
                        Outcome& outcome) {
        const TestSupport::TraceCapture traces(0x3);
        const auto writer = openWriter<Shape>(table, shrinkingTable());
        const auto traced = [&traces](const std::string& text) {
            return std::any_of(traces.lines().begin(), traces.lines().end(),
                               [&](const auto& line) { return line.text.starts_with(text); });
        };
        const bool lost =
            traced(fmt::format("all entries from {}/{} will be lost", root_.path(), table));
        EXPECT_EQ(lost, traced("failed to validate existing files") ||
                            traced("failed to attach to existing files") ||
                            traced("owner file validation failed"));
        EXPECT_EQ(lost, traced("re-formatted successfully"));
        const Model content = contentOf<Shape>(*writer);
        EXPECT_TRUE(lost ? content.empty() : content == before_ || content == after_)
            << content.size() << " entries";
        outcome.next.insert(lost                 ? "formatted anew"
                            : content == before_ ? at_.ofFiles() ? "kept" : "before"
                            : at_.ofFiles()      ? "empty"
                                                 : "after");
        // The flag of an unfinished change is not believed, and nothing but it costs a table,
        // unless a value was being rewritten.
        const bool rewriting =
            place.point == StopPoint::slotValue || place.point == StopPoint::rewriteEnd;
        if (!at_.ofFiles()) {
            EXPECT_TRUE(lost ? flagged || rewriting : !flagged);
        }
        EXPECT_TRUE(writer->validate());
        writer->write(Shape::value(7, 77), true);
        Model model = content;
        model[Shape::key(7)] = 77;
        EXPECT_TRUE(contentOf<Shape>(*writer) == model);
        ASSERT_TRUE(attach(late_, table));
        const auto words = wordsOf(late_);
        for (std::uint32_t number = 0; number < kKeys; ++number) {
            const auto generation = generationIn(model, number);
            EXPECT_EQ(words[number], generation ? std::to_string(*generation) : "-");
            EXPECT_EQ(words[kKeys + number], words[number]);
        }
        writer->cleanup();
    }

    /// Nothing comes of a death that the document does not list, and it lists no other places.
    void compareWithTheDocument() {
        const auto setOf = [](const std::string& cell) {
            std::set<std::string> words;
            std::istringstream in(cell);
            for (std::string word; std::getline(in >> std::ws, word, ',');) {
                words.insert(word);
            }
            return words;
        };
        std::map<std::string, Outcome> documented;
        for (const Docs::Row& row : Docs::table("docs/recovery.md", "deaths")) {
            for (const std::string& point : setOf(row.at(1))) {
                documented[row.at(0) + " at " + Docs::quoted(point)] = {setOf(row.at(2)),
                                                                        setOf(row.at(3))};
            }
        }
        EXPECT_EQ(documented.size(), outcomes_.size());
        for (const auto& [place, outcome] : outcomes_) {
            const Outcome& listed = documented[place.text()];
            std::cout << fmt::format(
                "| {} | `{}` | {} | {} |\n",
                kOperationNames[static_cast<std::size_t>(place.operation)],
                Mem::kStopPointNames[static_cast<std::size_t>(place.point)],
                outcome.found.empty() ? "-" : fmt::format("{}", fmt::join(outcome.found, ", ")),
                fmt::join(outcome.next, ", "));
            EXPECT_TRUE(std::ranges::includes(listed.found, outcome.found)) << place.text();
            EXPECT_TRUE(std::ranges::includes(listed.next, outcome.next)) << place.text();
        }
    }

    static std::vector<std::string> readerCommand() {
        return {CRASH_READER, Shape::name, Mem::RootPath::base(), std::to_string(kKeys)};
    }

    const TestSupport::TempRoot root_;
    std::vector<Step> steps_;
    std::unique_ptr<WriterOf<Shape>> writer_;
    Step at_{};
    Model before_;
    Model after_;
    std::array<std::vector<std::uint64_t>, 2> links_;
    TestSupport::Process early_{readerCommand()};
    TestSupport::Process late_{readerCommand()};
    std::uint32_t deaths_ = 0;
    double slowest_ = 0;
    std::map<Place, Outcome> outcomes_;
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
    Mem::stopHook = [](StopPoint point) { ++passes[{operation, point}]; };
    {
        const TestSupport::TraceCapture quiet(0);
        this->run("dry");
        Mem::stopHook = nullptr;
        this->writer_.reset();
    }
    std::set<StopPoint> reached;
    std::uint64_t all = 0;
    const auto deaths = static_cast<std::uint64_t>(4 * TestSupport::lengthFactor());
    for (const auto& [place, last] : passes) {
        reached.insert(place.point);
        all += last;
        const std::uint64_t stride = std::max<std::uint64_t>(1, last / std::max(deaths, {2}));
        for (std::uint64_t pass = (last - 1) % stride + 1; pass <= last; pass += stride) {
            SCOPED_TRACE(fmt::format("{}, pass {} of {}", place.text(), pass, last));
            this->dieAt(place, pass);
            if (testing::Test::HasFailure()) return;
        }
    }
    EXPECT_EQ(reached.size(), Mem::kStopPoints) << "a stop point is never passed";
    this->compareWithTheDocument();
    std::cout << fmt::format(
        "{}: {} deaths at {} places of {} passings, slowest answer {:.0f} ms\n", TypeParam::name,
        this->deaths_, passes.size(), all, this->slowest_ * 1e3);
}

} // namespace
} // namespace EngineTest
