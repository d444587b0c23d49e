#include "Mem/Atomics.h"

#include <atomic>
#include <cstdint>

namespace Mem::Atomics {

namespace {

std::atomic<bool> supported{std::atomic<std::uint64_t>::is_always_lock_free};

} // namespace

bool checkCpuSupport() { return supported; }

void cpuSupportIs(bool value) { supported = value; }

} // namespace Mem::Atomics
