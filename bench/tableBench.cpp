// What the operations of a table cost through its public interface, beside absl::flat_hash_set in
// the same run: an in-process table for one thread, the best that a thread gets when nobody else
// has to see its data. The goals are multiples of that figure. Most of them lie a little above what
// the layout allows at best (a bucket word, then a slot) and below what other tables reach that can
// be read while they are written.
//
//   tableBench [--smoke] [options of Google Benchmark]
//
// --smoke runs everything once on small tables. Every benchmark checks its answers; a wrong one
// ends in an error and exit code 1.

#include "Keys.h"
#include "Loops.h"
#include "PlainMemory.h"
#include "Report.h"
#include "ScratchRoot.h"
#include "Sides.h"

#include "MoxVesk/MountInfo.h"
#include "Pello/Scheduler.h"
#include "Rsvp/MessageCounterColl.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Bench {
namespace {

/// What the benchmarks of one shape work on, on one side. Built by the first that needs it.
template <class TheShape, template <class> class SideOf>
class Subject {
  public:
    using Shape = TheShape;
    using Side = SideOf<Shape>;
    using Key = typename Shape::Key;
    using Value = typename Shape::Ops::Value;

    Subject(std::string name, std::uint32_t entries)
        : name_(std::move(name))
        , entries_(entries) {}

    std::uint32_t entries() const { return entries_; }
    const std::string& name() const { return name_; }

    /// For reading and counting.
    Side& full() {
        if (!full_) {
            full_.emplace(name_, entries_);
            insertAll(*full_);
        }
        return *full_;
    }
    /// For inserting and removing; full or empty as the benchmark needs it, and filled before.
    Side& changing(bool filled) {
        if (!changing_) {
            changing_.emplace(name_ + ".changing", entries_);
            insertAll(*changing_);
        }
        if (filled && changing_->size() == 0) insertAll(*changing_);
        if (!filled && changing_->size() != 0) removeAll(*changing_);
        return *changing_;
    }

    void insertAll(Side& side) const {
        for (std::uint32_t i = 0; i < entries_; ++i) {
            side.insert(valueOf(i));
        }
    }
    /// A random order, so that later insertions find the free slots in random order.
    const std::vector<std::uint32_t>& order() {
        if (order_.empty()) {
            order_.resize(entries_);
            std::iota(order_.begin(), order_.end(), 0U);
            std::shuffle(order_.begin(), order_.end(), std::mt19937(2));
        }
        return order_;
    }
    void removeAll(Side& side) {
        for (const std::uint32_t i : order()) {
            side.remove(Keys<Shape>::of(i));
        }
    }

  private:
    /// A value of one pattern under a key: making it is little beside storing it.
    static Value valueOf(std::uint32_t number) {
        static const Value pattern = Shape::value(0, 1);
        Value value = pattern;
        keyIs(value, Keys<Shape>::of(number));
        return value;
    }

    std::string name_;
    std::uint32_t entries_;
    std::optional<Side> full_;
    std::optional<Side> changing_;
    std::vector<std::uint32_t> order_;
};

/// What a loop of lookups costs without a table.
template <class Shape>
void makeAndHashKey(benchmark::State& state, std::uint32_t entries) {
    Random random;
    std::uint32_t seed = 1;
    benchmark::DoNotOptimize(seed);
    for (auto _ : state) {
        const typename Shape::Key key = Keys<Shape>::of(random.below(entries));
        benchmark::DoNotOptimize(&key);
        benchmark::DoNotOptimize(Shape::Ops::hash(key, seed));
    }
}

/// Each key depends on the value found before.
template <class Subject>
void lookupDependent(benchmark::State& state, Subject& subject) {
    const auto& side = subject.full();
    Random random;
    typename Subject::Value out;
    std::uint32_t zero = 0;
    benchmark::DoNotOptimize(zero);
    bool ok = true;
    for (auto _ : state) {
        std::uint32_t last = 0;
        const auto* const bytes = reinterpret_cast<const std::byte*>(&out);
        std::memcpy(&last, bytes + sizeof out - sizeof last, sizeof last);
        const std::uint32_t number = random.below(subject.entries()) + (last & zero);
        ok &= side.lookup(Keys<typename Subject::Shape>::of(number), out);
        benchmark::DoNotOptimize(&out);
    }
    expect(state, ok);
}

template <class Subject>
void count(benchmark::State& state, Subject& subject) {
    auto& side = subject.full();
    Random random;
    bool ok = true;
    for (auto _ : state) {
        ok &= side.count(Keys<typename Subject::Shape>::of(random.below(subject.entries())));
    }
    expect(state, ok);
}

template <class Subject>
void insertWarm(benchmark::State& state, Subject& subject) {
    bool ok = true;
    while (state.KeepRunningBatch(subject.entries())) {
        state.PauseTiming();
        auto& side = subject.changing(false);
        ok &= side.size() == 0;
        state.ResumeTiming();
        subject.insertAll(side);
        ok &= side.size() == subject.entries();
    }
    expect(state, ok);
}

template <class Subject>
void insertGrowing(benchmark::State& state, Subject& subject) {
    bool ok = true;
    while (state.KeepRunningBatch(subject.entries())) {
        state.PauseTiming();
        std::optional<typename Subject::Side> side;
        side.emplace(subject.name() + ".growing", 0);
        state.ResumeTiming();
        subject.insertAll(*side);
        ok &= side->size() == subject.entries();
        state.PauseTiming();
        side.reset();
        state.ResumeTiming();
    }
    expect(state, ok);
}

template <class Subject>
void remove(benchmark::State& state, Subject& subject) {
    bool ok = true;
    while (state.KeepRunningBatch(subject.entries())) {
        state.PauseTiming();
        auto& side = subject.changing(true);
        ok &= side.size() == subject.entries();
        state.ResumeTiming();
        subject.removeAll(side);
        ok &= side.size() == 0;
    }
    expect(state, ok);
}

/// A copy of one slot's value, each waiting for the last.
template <class Shape>
void copySlot(benchmark::State& state, const std::string& file, std::uint32_t entries) {
    using Value = typename Shape::Ops::Value;
    static const SlotCycle<sizeof(Value)> cycle(file, entries);
    Value value;
    std::uint32_t slot = 0;
    for (auto _ : state) {
        slot = cycle.step(slot, &value);
        benchmark::DoNotOptimize(&value);
    }
}

/// A writer takes over the files that it finds, after a check of everything.
template <class Subject>
void openAndCheck(benchmark::State& state, Subject& subject) {
    auto& side = subject.changing(true);
    bool ok = true;
    for (auto _ : state) {
        state.PauseTiming();
        side.table().detach(false);
        state.ResumeTiming();
        ok &= side.table().initialize("bench");
        ok &= side.size() == subject.entries();
    }
    expect(state, ok);
}

template <class Subject>
void openAndWalk(benchmark::State& state, Subject& subject) {
    auto& side = subject.changing(true);
    const std::string folder = side.table().rootPath().path();
    bool ok = true;
    std::optional<PlainTable<typename Subject::Shape::Ops>> table;
    for (auto _ : state) {
        table.emplace(folder);
        ok &= table->walk(side.table().hashSeed()) == subject.entries();
        state.PauseTiming();
        table.reset();
        state.ResumeTiming();
    }
    expect(state, ok);
}

/// A critical-priority task that is always ready, and the longest time that it had to wait.
class WaitingTask {
  public:
    void begin() { since_ = Pello::Rdtsc::now(); }
    void end() {
        if (since_ != 0) longest_ = std::max(longest_, Pello::Rdtsc::now() - since_);
        since_ = 0;
    }
    /// Keeps the task ready for as long as the task exists.
    static void post(const std::shared_ptr<WaitingTask>& task) {
        const std::weak_ptr<WaitingTask> weak = task;
        Pello::schedulerRootPello()->criticalPriorityTaskIs([weak] {
            const auto ready = weak.lock();
            if (!ready) return;
            const bool waited = ready->since_ != 0;
            ready->end();
            if (waited) ready->begin();
            post(ready);
        });
    }
    double longest() const {
        return static_cast<double>(longest_) / Pello::Rdtsc::calibrationRate();
    }

  private:
    std::uint64_t since_ = 0; ///< 0 while nobody keeps it from running
    std::uint64_t longest_ = 0;
};

/// A table loses its entries, in no order, until it is small again. `pause` is the longest time, in
/// seconds, for which an operation kept the thread from its critical tasks.
template <class Shape>
void shrink(benchmark::State& state, std::uint32_t entries, bool yielding) {
    Vesk::MapDescriptor descriptor(0, Vesk::VeskType::writer);
    descriptor.shrinkSlots = true;
    descriptor.shrinkBuckets = true;
    descriptor.criticalTaskCheck = yielding;
    Subject<Shape, TableSide> subject("shrinking", entries);
    TableSide<Shape> side(subject.name(), descriptor);
    const std::vector<std::uint32_t>& order = subject.order();
    const auto task = std::make_shared<WaitingTask>();
    WaitingTask::post(task);
    bool ok = true;
    while (state.KeepRunningBatch(entries)) {
        state.PauseTiming();
        subject.insertAll(side);
        const std::uint32_t grown = side.table().capacity();
        state.ResumeTiming();
        for (const std::uint32_t i : order) {
            task->begin();
            ok &= side.remove(Keys<Shape>::of(i));
            task->end();
        }
        ok &= side.table().capacity() < grown / 8;
    }
    expect(state, ok);
    state.counters["pause"] = task->longest();
}

struct Goals {
    double lookupHit;
    double lookupDependent;
    double lookupMiss;
    double count;
    double iterate; ///< to a dependent copy of one slot
    double insertWarm;
    double insertGrowing;
    double remove;
};

/// Registers the benchmarks of one shape and says what is compared with what.
template <class Shape>
void registerShape(const std::string& name, const std::string& title, std::uint32_t entries,
                   const ScratchRoot& root, const Goals& goals,
                   std::vector<Comparison>& comparisons) {
    using OfTable = Subject<Shape, TableSide>;
    using OfAbsl = Subject<Shape, AbslSide>;
    static OfTable table(name, entries);
    static OfAbsl absl(name, entries);
    const auto beside = [&](const std::string& item, const std::string& text, auto ofTable,
                            auto ofAbsl, double goal) {
        const std::string both = name + "/" + item;
        benchmark::RegisterBenchmark((both + "/table").c_str(), ofTable, std::ref(table));
        benchmark::RegisterBenchmark((both + "/absl").c_str(), ofAbsl, std::ref(absl));
        comparisons.push_back({title + text, both + "/table", both + "/absl", "absl", goal});
    };
    beside("lookupHit", "lookup hit, value copied", lookupHit<OfTable>, lookupHit<OfAbsl>,
           goals.lookupHit);
    beside("lookupDependent", "lookup hit, each waiting for the last", lookupDependent<OfTable>,
           lookupDependent<OfAbsl>, goals.lookupDependent);
    beside("lookupMiss", "lookup miss", lookupMiss<OfTable>, lookupMiss<OfAbsl>, goals.lookupMiss);
    beside("count", "count: lookup, add 1, write in full", count<OfTable>, count<OfAbsl>,
           goals.count);
    beside("iterate", "iteration, per entry (absl's in no order)", iterate<OfTable>,
           iterate<OfAbsl>, 0);
    benchmark::RegisterBenchmark((name + "/copySlot").c_str(), copySlot<Shape>,
                                 root.file(name + ".cycle"), entries);
    comparisons.push_back({title + "iteration, per entry", name + "/iterate/table",
                           name + "/copySlot", "dependent copy of a slot", goals.iterate});
    beside("insertWarm", "insert after remove", insertWarm<OfTable>, insertWarm<OfAbsl>,
           goals.insertWarm);
    beside("insertGrowing", "insert, growing from empty", insertGrowing<OfTable>,
           insertGrowing<OfAbsl>, goals.insertGrowing);
    beside("remove", "remove", remove<OfTable>, remove<OfAbsl>, goals.remove);
    benchmark::RegisterBenchmark((name + "/key").c_str(), makeAndHashKey<Shape>, entries);
    comparisons.push_back({title + "making and hashing a key, no table", name + "/key",
                           name + "/lookupHit/absl", "absl, lookup hit", 0});
    benchmark::RegisterBenchmark((name + "/open/check").c_str(), openAndCheck<OfTable>,
                                 std::ref(table));
    benchmark::RegisterBenchmark((name + "/open/walk").c_str(), openAndWalk<OfTable>,
                                 std::ref(table));
    benchmark::RegisterBenchmark((name + "/shrink").c_str(), shrink<Shape>, entries, false);
    benchmark::RegisterBenchmark((name + "/shrinkYielding").c_str(), shrink<Shape>, entries, true);
    comparisons.push_back({title + "remove with shrinking, yielding", name + "/shrinkYielding",
                           name + "/shrink", "not yielding", 0});
    comparisons.push_back({title + "open and check the table", name + "/open/check",
                           name + "/open/walk", "plain walk of its files", 2});
}

void registerQueue(std::uint32_t entries, std::vector<Comparison>& comparisons) {
    using With = Subject<LocalShape<true>, TableSide>;
    using Without = Subject<LocalShape<false>, TableSide>;
    static With with("queue", entries);
    static Without without("noQueue", entries);
    benchmark::RegisterBenchmark("small/queue/with", count<With>, std::ref(with));
    benchmark::RegisterBenchmark("small/queue/without", count<Without>, std::ref(without));
    comparisons.push_back({"24 bytes: count, with a notification queue", "small/queue/with",
                           "small/queue/without", "without one", 1.3});
}

/// What an agent does for each message: through its collection, mounted in shared memory.
void incRxCount(benchmark::State& state, std::uint32_t entries) {
    using Rsvp::Vesk::MessageCounterColl;
    static MoxVesk::Mounter mounter;
    static const auto coll = [] {
        const auto made = MessageCounterColl::MessageCounterCollIs("bench");
        mounter.mount(made, "bench", MessageCounterColl::writerMountInfo(), Vesk::VeskType::writer);
        return made;
    }();
    constexpr std::uint32_t kTypes = MessageCounterColl::msgTypes;
    constexpr Rsvp::RsvpMsgType kWireTypes[kTypes] = {
        Rsvp::rsvpPathMsg,     Rsvp::rsvpResvMsg,     Rsvp::rsvpPathErrMsg,  Rsvp::rsvpResvErrMsg,
        Rsvp::rsvpPathTearMsg, Rsvp::rsvpResvTearMsg, Rsvp::rsvpResvConfMsg, Rsvp::rsvpBundleMsg,
        Rsvp::rsvpAckMsg,      Rsvp::rsvpSrefreshMsg, Rsvp::rsvpHelloMsg};
    const auto count = [&](std::uint32_t number) {
        coll->incRxCount(Wirra::IntfId(number / kTypes), kWireTypes[number % kTypes],
                         Wirra::ipv4AddressFamily);
    };
    for (std::uint32_t i = 0; i < entries; ++i) {
        count(i);
    }
    Random random;
    for (auto _ : state) {
        count(random.below(entries));
    }
    expect(state, coll->rxIpv4CountMap().members() == entries);
}

void registerCollection(std::uint32_t entries, std::vector<Comparison>& comparisons) {
    benchmark::RegisterBenchmark("small/incRxCount", incRxCount, entries);
    comparisons.push_back({"24 bytes: incRxCount of a mounted collection", "small/incRxCount",
                           "small/count/absl", "absl, count", 2.5});
}

void registerAll(bool smoke, const ScratchRoot& root, std::vector<Comparison>& comparisons) {
    registerShape<TestSupport::MessageShape>("small", "24 bytes: ", smoke ? 550 : 5632, root,
                                             {.lookupHit = 1.8,
                                              .lookupDependent = 1.2,
                                              .lookupMiss = 1.94,
                                              .count = 2.5,
                                              .iterate = 1.2,
                                              .insertWarm = 0.8,
                                              .insertGrowing = 1.5,
                                              .remove = 1.1},
                                             comparisons);
    registerQueue(smoke ? 550 : 5632, comparisons);
    registerCollection(smoke ? 550 : 5632, comparisons);
    registerShape<TestSupport::SpShape>("large", "168 bytes: ", smoke ? 10000 : 1000000, root,
                                        {.lookupHit = 1.4,
                                         .lookupDependent = 1.3,
                                         .lookupMiss = 5.4,
                                         .count = 1.5,
                                         .iterate = 1.2,
                                         .insertWarm = 1.4,
                                         .insertGrowing = 1.2,
                                         .remove = 1.7},
                                        comparisons);
}

} // namespace
} // namespace Bench

int main(int argc, char** argv) { return Bench::run(argc, argv, Bench::registerAll); }
