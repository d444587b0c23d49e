#include "Pello/Time.h"

#include <ctime>

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

namespace Pello {

namespace {

std::uint64_t nanoseconds(clockid_t clock) {
    timespec t{};
    clock_gettime(clock, &t);
    return static_cast<std::uint64_t>(t.tv_sec) * 1'000'000'000U +
           static_cast<std::uint64_t>(t.tv_nsec);
}

double seconds(clockid_t clock) { return static_cast<double>(nanoseconds(clock)) * 1e-9; }

} // namespace

double time() { return seconds(CLOCK_MONOTONIC); }

double wallTime() { return seconds(CLOCK_REALTIME); }

namespace Rdtsc {

#if defined(__x86_64__)

namespace {

double measureRate() {
    constexpr std::uint64_t kSpan = 5'000'000; // ns: long against one clock call, short for a user
    const std::uint64_t start = nanoseconds(CLOCK_MONOTONIC);
    const std::uint64_t startTicks = __rdtsc();
    std::uint64_t end = start;
    while (end - start < kSpan) {
        end = nanoseconds(CLOCK_MONOTONIC);
    }
    const std::uint64_t ticks = __rdtsc() - startTicks;
    const double rate = static_cast<double>(ticks) * 1e9 / static_cast<double>(end - start);
    return rate > 0 ? rate : 1e9;
}

} // namespace

std::uint64_t now() { return __rdtsc(); }

double calibrationRate() {
    static const double rate = measureRate();
    return rate;
}

#else

std::uint64_t now() { return nanoseconds(CLOCK_MONOTONIC); }

double calibrationRate() { return 1e9; }

#endif

} // namespace Rdtsc
} // namespace Pello
