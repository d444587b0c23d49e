#pragma once

#include "Pello/Debug.h"
#include "Pello/String.h"

#include <cstdint>
#include <vector>

namespace Pello::Util {

/// The trace handle of a table: its name with '.' for '/', after `handle` and a '.' when that is
/// not empty. `permanent` registers the handle for the life of the process.
String traceHandleName(const String& name, const String& handle, bool permanent);

/// Bytes of a file of `n` slots behind a header, not rounded. Throws `RuntimeException` when the
/// size exceeds what a file offset holds.
std::uint64_t fileSizeHelper(std::uint64_t n, std::uint64_t slotSize, std::uint64_t headerSize);

/// A line for the process's canary log: kept in memory and traced at level 0.
void emitCanaryLog(const Platform::DebugHandler& handler, const String& text);
std::vector<String> canaryLog();

/// Lets core dumps of this process include shared mappings (bits 1 and 3 of the kernel's core
/// dump filter). Where the kernel refuses, that is traced at level 0 and nothing else happens.
void includeShmemInCore();

} // namespace Pello::Util
