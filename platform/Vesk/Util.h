#pragma once

#include "Mem/Mapping.h"

namespace Vesk::Util {

/// Name of the marker that a reader leaves when it finds a table corrupt.
inline constexpr const char* CORRUPTION_FILENAME = "corruption-detected";

/// Leaves the marker, with what was found, for the writer to see. A reader that may not write there
/// leaves none, and one that is there already stays.
void writeCorruptionFile(const Mem::OruRootPath& rootPath, const Pello::String& text);

/// Throws `CorruptionDetectedException` unless the file behind the mapping is still the one that
/// its name leads to, a regular file, and at least as large as the mapping.
void validateFile(const Mem::Mapping& mapping);

/// Both true: a table that fails its validation is an error to keep and to look into, instead of
/// something to repair.
bool runningOnPhysicalDut();
bool strictValidation();
void runningOnPhysicalDutIs(bool physical);
void strictValidationIs(bool strict);

/// A seed for the hashes of a fresh table that is none of the two which the file had before. It
/// comes from `rand()`, whose sequence belongs to the process and is never seeded here; a process
/// that has not called `srand` starts where every other does, which is why seeds are excluded. Two
/// of them, since one take-over may format a file twice.
std::uint32_t newHashSeed(std::uint32_t previous, std::uint32_t beforeThat);

} // namespace Vesk::Util
