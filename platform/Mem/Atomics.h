#pragma once

namespace Mem::Atomics {

/// True when 64-bit words are read and written whole by this processor, which shared tables need.
bool checkCpuSupport();

/// For tests: pretends that the processor lacks that support.
void cpuSupportIs(bool supported);

} // namespace Mem::Atomics
