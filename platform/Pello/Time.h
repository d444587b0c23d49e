#pragma once

#include <cstdint>

namespace Pello {

/// Seconds of the monotonic clock; only differences mean anything.
double time();

/// Seconds since 1970 of the wall clock.
double wallTime();

/// The cheapest clock of the machine: the time-stamp counter on x86-64, nanoseconds of the
/// monotonic clock elsewhere.
namespace Rdtsc {

std::uint64_t now();

/// Ticks of `now()` per second; never 0. Measured once, on first use, over about 5 ms.
double calibrationRate();

} // namespace Rdtsc

} // namespace Pello
