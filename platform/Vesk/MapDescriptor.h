#pragma once

#include "Pello/String.h"

#include <fmt/format.h>

#include <cstdint>

namespace Mem {

/// Base of the descriptors that a table front is initialised from.
struct CollectionDescriptor {
    CollectionDescriptor() = default;
    CollectionDescriptor(const CollectionDescriptor&) = default;
    CollectionDescriptor& operator=(const CollectionDescriptor&) = default;
    virtual ~CollectionDescriptor() = default;
};

} // namespace Mem

namespace Vesk {

/// How a table is used by this process.
enum class VeskType : std::uint32_t {
    writer = 0,
    shadow = 1,
    reader = 2,
    keyshadow = 3
};

/// Size, mode and options of one table.
struct MapDescriptor : Mem::CollectionDescriptor {
    /// A writer in process memory.
    explicit MapDescriptor(std::uint32_t entries)
        : size(entries)
        , localMem(true) {}
    MapDescriptor(std::uint32_t entries, VeskType mode)
        : size(entries)
        , type(mode) {}

    /// Entries. The bound of a fixed-size table; the others only report that they exceed it.
    std::uint32_t size;
    VeskType type = VeskType::writer;

    bool localMem = false;             ///< in process memory: no files, always a writer
    bool fixedSize = false;            ///< never more than `size` entries
    bool shrinkSlots = false;          ///< the slot file shrinks when most entries are gone
    bool shrinkBuckets = false;        ///< the buckets halve when most entries are gone
    bool keepDeleted = false;          ///< prune mode 0 of the notification queue instead of 1
    bool synchronousInit = false;      ///< shadows do not park their callbacks during the init
    bool flushNotification = false;    ///< shadows report flushed entries
    bool heapAlloc = false;            ///< process memory comes from the heap; needs `localMem`
    bool trackMemory = false;          ///< `Mem::MemoryTracker` lists the slot file's mapping
    bool cleanupOnInit = false;        ///< the files are removed first
    bool forceResync = false;          ///< shadows report differences only, also on first mount
    bool assertOnOrphanAccess = false; ///< any use after the collection lost its parent is fatal
    bool criticalTaskCheck = false;    ///< long resizes yield to critical-priority tasks
    bool prevValue = false;            ///< not supported by these tables
    bool dumpToCore = false;           ///< core dumps include the files

    friend bool operator==(const MapDescriptor& a, const MapDescriptor& b) {
        return a.size == b.size && a.type == b.type && a.flagWord() == b.flagWord();
    }

    /// The 15 options in their fixed order, the first in bit 0.
    std::uint32_t flagWord() const {
        std::uint32_t word = 0;
        std::uint32_t bit = 1;
        for (const bool flag :
             {localMem, fixedSize, shrinkSlots, shrinkBuckets, keepDeleted, synchronousInit,
              flushNotification, heapAlloc, trackMemory, cleanupOnInit, forceResync,
              assertOnOrphanAccess, criticalTaskCheck, prevValue, dumpToCore}) {
            if (flag) word |= bit;
            bit <<= 1U;
        }
        return word;
    }
};

} // namespace Vesk

template <>
struct fmt::formatter<Vesk::VeskType> : fmt::formatter<fmt::string_view> {
    auto format(Vesk::VeskType type, fmt::format_context& context) const {
        constexpr const char* names[] = {"writer", "shadow", "reader", "keyshadow"};
        const auto number = static_cast<std::uint32_t>(type);
        return fmt::formatter<fmt::string_view>::format(number < 4 ? names[number] : "?", context);
    }
};

template <>
struct fmt::formatter<Vesk::MapDescriptor> {
    static constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }
    static auto format(const Vesk::MapDescriptor& d, fmt::format_context& context) {
        return fmt::format_to(context.out(), "size:{} type:{} flags:{:#06x}", d.size, d.type,
                              d.flagWord());
    }
};
