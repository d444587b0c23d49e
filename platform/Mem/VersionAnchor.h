#pragma once

#include "Mem/SharedWords.h"
#include "Pello/Debug.h"
#include "Pello/Exception.h"

#include <cstddef>
#include <cstdint>

namespace Mem {

/// The slot that an anchor names has changed since it was read. The message is empty.
struct VersionMismatchException : Pello::Exception {
    using Exception::Exception;
};

/// Where a value was read: the slot's sequence word, its offset from the mapping's base, and the
/// base that the offset was taken against.
struct VersionAnchor {
    static constexpr std::uint32_t kNone = 0xFFFFFFFEU;        ///< nothing was read
    static constexpr std::uint32_t kInvalidated = 0xFFFFFFFFU; ///< the mapping was replaced since

    std::uint32_t sequence = 0;
    std::uint32_t offset = kNone;
    const std::byte* base = nullptr;

    /// Returns when the slot still holds what was read. `currentBase` and `currentSize` describe
    /// the mapping as it is now: a stale base is never followed. Throws
    /// `VersionMismatchException` otherwise; an anchor of nothing is a fatal assertion.
    void validate(const Pello::Platform::DebugHandler& handler, const std::byte* currentBase,
                  std::size_t currentSize) const;
};

/// The part of an anchor that callers keep beside a cached value.
struct CacheVersionAnchor {
    std::uint32_t sequence = 0;
    std::uint32_t offset = VersionAnchor::kNone;

    friend bool operator==(const CacheVersionAnchor&, const CacheVersionAnchor&) = default;
};

} // namespace Mem
