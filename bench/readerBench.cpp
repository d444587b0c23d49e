// What reads of a table cost in another process than its writer's: alone, beside a writer that
// overwrites at full speed, and while the table grows from ten entries to a million and shrinks
// back. The base of the comparisons is a look-up in absl::flat_hash_set, alone in its process.
//
//   readerBench [--smoke] [options of Google Benchmark]
//
// The benchmarks of latencies report the 50th, 99th and 99.9th percentile and the longest read, in
// nanoseconds, the reading of the clock included.

#include "Loops.h"
#include "Report.h"
#include "Sides.h"

#include "Mem/RootPath.h"
#include "Pello/Time.h"

#include <algorithm>
#include <charconv>
#include <csignal>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Bench {
namespace {

constexpr std::uint32_t kStaying = 10;

template <class Shape>
typename Shape::Ops::Value valueOf(std::uint32_t number) {
    static const typename Shape::Ops::Value pattern = Shape::value(0, 1);
    typename Shape::Ops::Value value = pattern;
    keyIs(value, Keys<Shape>::of(number));
    return value;
}

/// The writer's process: fills a table, says so, and then changes it for ever.
template <class Shape>
[[noreturn]] void write(const std::string& name, bool swinging, std::uint32_t entries) {
    Vesk::MapDescriptor descriptor(swinging ? kStaying : entries, Vesk::VeskType::writer);
    descriptor.shrinkBuckets = swinging;
    descriptor.shrinkSlots = swinging;
    const auto table = openTable<typename Shape::Ops>(name, descriptor);
    const auto put = [&table](std::uint32_t number) { table->write(valueOf<Shape>(number), true); };
    for (std::uint32_t i = 0; i < (swinging ? kStaying : entries); ++i) {
        put(i);
    }
    std::cout << "ready" << std::endl;
    Random random;
    typename Shape::Ops::Value out;
    while (!swinging) {
        put(random.below(entries));
    }
    while (true) {
        for (std::uint32_t i = kStaying; i < entries; ++i) {
            put(i);
        }
        for (std::uint32_t i = kStaying; i < entries; ++i) {
            table->remove(Keys<Shape>::of(i), out);
        }
    }
}

int writeAs(char** arguments) {
    const std::string_view shape = arguments[0];
    const std::string name = arguments[1];
    const bool swinging = std::string_view(arguments[2]) == "swinging";
    std::uint32_t entries = 0;
    const std::string_view number = arguments[3];
    std::from_chars(number.data(), number.data() + number.size(), entries);
    Mem::RootPath::baseIs(arguments[4]);
    if (shape == "small") write<TestSupport::MessageShape>(name, swinging, entries);
    write<TestSupport::SpShape>(name, swinging, entries);
}

/// A table's writer in a process of its own, which stands still unless a benchmark wants it.
class WriterProcess {
  public:
    WriterProcess(const std::string& shape, const std::string& name, bool swinging,
                  std::uint32_t entries) {
        int out[2];
        if (pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        const std::string number = std::to_string(entries);
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(out[1], STDOUT_FILENO);
            execl("/proc/self/exe", "readerBench", "--writer", shape.c_str(), name.c_str(),
                  swinging ? "swinging" : "full", number.c_str(), Mem::RootPath::base().c_str(),
                  nullptr);
            _exit(127);
        }
        close(out[1]);
        char ready = 0;
        const bool began = read(out[0], &ready, 1) == 1;
        close(out[0]);
        if (!began) throw std::runtime_error("the writer does not begin");
        kill(pid_, SIGSTOP);
    }
    ~WriterProcess() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    WriterProcess(const WriterProcess&) = delete;
    WriterProcess& operator=(const WriterProcess&) = delete;

    void run() {
        pauseAll();
        running_ = pid_;
        kill(pid_, SIGCONT);
    }
    static void pauseAll() {
        if (running_ != 0) kill(running_, SIGSTOP);
        running_ = 0;
    }

  private:
    inline static pid_t running_ = 0;
    pid_t pid_;
};

/// A table and its reader. Built by the first benchmark that needs it.
template <class TheShape>
struct Published {
    Published(std::string theShape, bool theSwinging, std::uint32_t theEntries)
        : shape(std::move(theShape))
        , swinging(theSwinging)
        , entries(theEntries) {}

    void build() {
        if (reader) return;
        const std::string name = shape + (swinging ? ".swinging" : "");
        writer.emplace(shape, name, swinging, entries);
        reader.emplace(name);
    }

    std::string shape;
    bool swinging;
    std::uint32_t entries;
    std::optional<WriterProcess> writer;
    std::optional<ReaderSide<TheShape>> reader;
};

/// The reader as a subject of the loops, with the writer at work or not.
template <class TheShape>
class Subject {
  public:
    using Shape = TheShape;
    using Value = typename Shape::Ops::Value;

    Subject(Published<Shape>& table, bool beside)
        : table_(table)
        , beside_(beside) {}

    /// The keys that are there at any time.
    std::uint32_t entries() const { return table_.swinging ? kStaying : table_.entries; }
    const ReaderSide<Shape>& full() {
        table_.build();
        beside_ ? table_.writer->run() : WriterProcess::pauseAll();
        return *table_.reader;
    }

  private:
    Published<Shape>& table_;
    bool beside_;
};

/// Entries of the same bytes in the process itself, for the loop of look-ups.
template <class TheShape>
class AbslSubject {
  public:
    using Shape = TheShape;
    using Value = typename Shape::Ops::Value;

    explicit AbslSubject(std::uint32_t entries)
        : entries_(entries) {}

    std::uint32_t entries() const { return entries_; }
    const AbslSide<Shape>& full() {
        WriterProcess::pauseAll();
        if (side_) return *side_;
        side_.emplace("", entries_);
        for (std::uint32_t i = 0; i < entries_; ++i) {
            side_->insert(valueOf<Shape>(i));
        }
        return *side_;
    }

  private:
    std::uint32_t entries_;
    std::optional<AbslSide<Shape>> side_;
};

template <class Subject>
void latencies(benchmark::State& state, Subject& subject) {
    const auto& side = subject.full();
    const auto resizes = [&side] {
        const Vesk::Reader::Counters counters = side.table().readerCounters();
        return counters.slotResizes + counters.buckets.resizes;
    };
    const double tick = 1e9 / Pello::Rdtsc::calibrationRate();
    const std::uint64_t resizesBefore = resizes();
    Random random;
    typename Subject::Value out;
    std::vector<std::uint32_t> ticks;
    ticks.reserve(static_cast<std::size_t>(state.max_iterations));
    bool ok = true;
    for (auto _ : state) {
        const auto key = Keys<typename Subject::Shape>::of(random.below(subject.entries()));
        const std::uint64_t begin = Pello::Rdtsc::now();
        ok &= side.lookup(key, out);
        benchmark::DoNotOptimize(&out);
        ticks.push_back(static_cast<std::uint32_t>(
            std::min<std::uint64_t>(Pello::Rdtsc::now() - begin, UINT32_MAX)));
    }
    expect(state, ok);
    const auto percentile = [&](double part) {
        const auto at = std::min(
            ticks.size() - 1, static_cast<std::size_t>(part * static_cast<double>(ticks.size())));
        std::nth_element(ticks.begin(), ticks.begin() + static_cast<std::ptrdiff_t>(at),
                         ticks.end());
        return ticks[at] * tick;
    };
    state.counters["p50"] = percentile(0.5);
    state.counters["p99"] = percentile(0.99);
    state.counters["p99.9"] = percentile(0.999);
    state.counters["longest"] = percentile(1);
    state.counters["resizes"] = static_cast<double>(resizes() - resizesBefore);
}

template <class Shape>
void registerShape(const std::string& name, const std::string& title, std::uint32_t entries,
                   double besideGoal, std::vector<Comparison>& comparisons) {
    static Published<Shape> table(name, false, entries);
    static Published<Shape> swinging(name, true, entries);
    static Subject<Shape> alone(table, false);
    static Subject<Shape> beside(table, true);
    static Subject<Shape> swung(swinging, true);
    static AbslSubject<Shape> absl(entries);
    const auto add = [&name](const std::string& item, auto function, auto& subject) {
        benchmark::RegisterBenchmark((name + "/" + item).c_str(), function, std::ref(subject));
    };
    add("hit/absl", lookupHit<AbslSubject<Shape>>, absl);
    add("miss/absl", lookupMiss<AbslSubject<Shape>>, absl);
    add("walk/absl", iterate<AbslSubject<Shape>>, absl);
    add("hit/alone", lookupHit<Subject<Shape>>, alone);
    add("miss/alone", lookupMiss<Subject<Shape>>, alone);
    add("walk/alone", iterate<Subject<Shape>>, alone);
    add("hit/beside", lookupHit<Subject<Shape>>, beside);
    add("miss/beside", lookupMiss<Subject<Shape>>, beside);
    add("walk/beside", iterate<Subject<Shape>>, beside);
    add("latency/alone", latencies<Subject<Shape>>, alone);
    add("latency/beside", latencies<Subject<Shape>>, beside);
    add("latency/swinging", latencies<Subject<Shape>>, swung);
    const auto compare = [&](const std::string& text, const std::string& item,
                             const std::string& base, double goal) {
        comparisons.push_back(
            {title + text, name + "/" + item, name + "/" + base, "absl alone", goal});
    };
    compare("hit, alone", "hit/alone", "hit/absl", 0);
    compare("miss, alone", "miss/alone", "miss/absl", 0);
    compare("walk, per entry, alone", "walk/alone", "walk/absl", 0);
    compare("hit, beside a writer", "hit/beside", "hit/absl", besideGoal);
    compare("miss, beside a writer", "miss/beside", "miss/absl", 0);
    compare("walk, per entry, beside a writer", "walk/beside", "walk/absl", 0);
}

void registerAll(bool smoke, const ScratchRoot& /*root*/, std::vector<Comparison>& comparisons) {
    registerShape<TestSupport::MessageShape>("small", "24 bytes: ", smoke ? 550 : 5632, 3.0,
                                             comparisons);
    registerShape<TestSupport::SpShape>("large", "168 bytes: ", smoke ? 10000 : 1000000, 1.25,
                                        comparisons);
}

} // namespace
} // namespace Bench

int main(int argc, char** argv) {
    if (argc == 7 && std::string_view(argv[1]) == "--writer") return Bench::writeAs(argv + 2);
    return Bench::run(argc, argv, Bench::registerAll);
}
