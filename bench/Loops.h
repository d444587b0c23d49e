#pragma once

// The loops that several benchmarks run. `Subject` has a `full()` side, filled with `entries()`
// entries, whose keys are `Keys<Subject::Shape>::of` the numbers below that.

#include "Keys.h"

#include <benchmark/benchmark.h>

#include <cstdint>

namespace Bench {

/// Cheap random numbers (Marsaglia's xorshift), so that making one is little beside a lookup.
class Random {
  public:
    std::uint32_t below(std::uint32_t n) {
        state_ ^= state_ << 13U;
        state_ ^= state_ >> 7U;
        state_ ^= state_ << 17U;
        return static_cast<std::uint32_t>((state_ >> 32U) * n >> 32U);
    }

  private:
    std::uint64_t state_ = 0x9E3779B97F4A7C15U;
};

inline void expect(benchmark::State& state, bool ok) {
    if (!ok) state.SkipWithError("wrong answer");
}

template <class Subject>
void lookupHit(benchmark::State& state, Subject& subject) {
    const auto& side = subject.full();
    Random random;
    typename Subject::Value out;
    bool ok = true;
    for (auto _ : state) {
        ok &= side.lookup(Keys<typename Subject::Shape>::of(random.below(subject.entries())), out);
        benchmark::DoNotOptimize(&out);
    }
    expect(state, ok);
}

template <class Subject>
void lookupMiss(benchmark::State& state, Subject& subject) {
    const auto& side = subject.full();
    Random random;
    typename Subject::Value out;
    bool ok = true;
    for (auto _ : state) {
        const std::uint32_t number = subject.entries() + random.below(subject.entries());
        ok &= !side.lookup(Keys<typename Subject::Shape>::of(number), out);
        benchmark::DoNotOptimize(&out);
    }
    expect(state, ok);
}

template <class Subject>
void iterate(benchmark::State& state, Subject& subject) {
    const auto& side = subject.full();
    bool ok = true;
    while (state.KeepRunningBatch(subject.entries())) {
        std::uint32_t seen = 0;
        side.iterate([&seen](const typename Subject::Value& value) {
            benchmark::DoNotOptimize(&value);
            ++seen;
        });
        ok &= seen == subject.entries();
    }
    expect(state, ok);
}

} // namespace Bench
