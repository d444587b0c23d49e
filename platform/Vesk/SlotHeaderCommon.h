#pragma once

// The first 600 bytes of a slot file. docs/layout.md has the same table with an example.
//
//   offset  width  field                   written
//        0      4  magic                   at format
//        4      2  format version          at format
//        6      2  size of this header     at format
//        8      4  byte order mark         at format
//       12      4  slot size               at format
//       16      4  ravo id                 at format
//       20      4  value size              at format
//       24      4  table size              at format
//       28      4  flags (2: notifying)    at format
//       32      4  page size               at format
//       40      8  creation time, ns       at format
//       48    128  type name, NUL-padded   at format
//      550      2  runtime flags           around every change (bit 0: critical section)
//      556      4  occupied slots          insertion, removal
//      560      4  head of the free list   insertion, removal, growth
//      564      4  high-water slot count   growth
//      568      4  hash seed               at format
//      576      8  {version, slot count}   growth, shrink, format
//      584      4  high-water occupancy    insertion
//      592      8  scratchpad              by clients
//
// All other bytes are 0. Every field is an aligned word or lies inside one: the runtime flags are
// the upper half of the word at 548.

#include "Mem/SharedWords.h"
#include "Mem/VersionedRef.h"
#include "Pello/Debug.h"
#include "SharedMem/RavoId.h"

#include <cstddef>
#include <cstdint>

namespace Vesk {

/// What a table's code expects of a slot file; part of what `validate` compares.
struct SlotFileShape {
    std::uint32_t slotSize;
    std::uint32_t valueSize;
    Pello::String typeName;
};

class SlotHeaderCommon {
  public:
    static constexpr std::uint16_t kSize = 600;
    static constexpr std::uint32_t kRavoIdOffset = 16;
    static constexpr std::uint32_t kNotifying = 2;
    static constexpr std::uint16_t kCriticalSection = 1;

    /// A private image of a fresh header: free list empty, nothing occupied, flags clear. It
    /// reaches a file by `formatInto`.
    SlotHeaderCommon(const Pello::Platform::DebugHandler& handler, std::uint16_t headerSize,
                     std::uint32_t slotSize, std::uint32_t numSlots, std::uint32_t tableSize,
                     std::uint32_t flags, SharedMem::RavoId id, const Pello::String& typeName,
                     std::uint32_t valueSize, std::uint32_t hashSeed);

    /// Copies the image over what a mapping held, but without the identity, which `ravoIdIs` adds
    /// when everything else stands: no reader takes such a file for a table. The version of the
    /// slot count goes on from the old header's, so that readers that are attached to the file
    /// notice the re-format.
    void formatInto(std::byte* base);

    /// The header at the start of a mapping.
    static SlotHeaderCommon& at(std::byte* base) {
        return *reinterpret_cast<SlotHeaderCommon*>(base);
    }

    /// True when the header is one of this layout, of this shape and identity, inside `memSize`
    /// bytes. Otherwise `error` says what differs, and is traced at level 0. What changes while
    /// the table lives is not judged, but that 1 <= slot count <= its high water.
    bool validate(const Pello::Platform::DebugHandler& handler, std::uint16_t headerSize,
                  std::uint64_t memSize, SharedMem::RavoId id, const SlotFileShape& shape,
                  Pello::String& error) const;

    Pello::String typeName() const;
    Pello::String toString() const;

    SharedMem::RavoId ravoId() const { return SharedMem::RavoId(Mem::load(ravoId_)); }
    std::uint32_t hashSeed() const { return Mem::load(hashSeed_); }
    Mem::VersionedRef<std::uint32_t> numSlots() const {
        return Mem::VersionedRef<std::uint32_t>::loadFrom(numSlots_);
    }
    std::uint32_t tableSize() const { return Mem::load(tableSize_); }
    std::uint32_t highWaterNumSlots() const { return Mem::load(highWaterNumSlots_); }
    std::uint32_t occupiedSlots() const { return Mem::load(occupiedSlots_); }
    std::uint32_t highWaterOccupancy() const { return Mem::load(highWaterOccupancy_); }
    std::uint32_t freeHead() const { return Mem::load(freeHead_); }
    std::uint64_t scratchpad() const { return Mem::load(scratchpad_); }
    std::uint16_t runtimeFlags() const {
        return static_cast<std::uint16_t>(Mem::load(runtimeWord_) >> kRuntimeShift);
    }

    // The writer's side.
    void ravoIdIs(SharedMem::RavoId id) {
        Mem::publish(Mem::StopPoint::identity, ravoId_, id.word());
    }
    void numSlotsIs(std::uint32_t count) {
        numSlots().next(count).publishTo(Mem::StopPoint::slotCount, numSlots_);
    }
    void highWaterNumSlotsIs(std::uint32_t count) { Mem::store(highWaterNumSlots_, count); }
    void occupiedSlotsIs(std::uint32_t count) {
        Mem::publish(Mem::StopPoint::occupiedCount, occupiedSlots_, count);
    }
    void highWaterOccupancyIs(std::uint32_t count) { Mem::store(highWaterOccupancy_, count); }
    void freeHeadIs(std::uint32_t slot) { Mem::publish(Mem::StopPoint::freeHead, freeHead_, slot); }
    void scratchpadIs(std::uint64_t word) { Mem::store(scratchpad_, word); }
    bool inCriticalSection() const { return (runtimeFlags() & kCriticalSection) != 0; }
    void criticalSectionIs(bool entered) {
        constexpr std::uint32_t bit = std::uint32_t{kCriticalSection} << kRuntimeShift;
        const std::uint32_t word = Mem::load(runtimeWord_);
        if (entered) {
            Mem::publish(Mem::StopPoint::criticalEnter, runtimeWord_, word | bit);
        } else {
            Mem::publish(Mem::StopPoint::criticalLeave, runtimeWord_, word & ~bit);
        }
    }

  private:
    static constexpr std::uint32_t kRuntimeShift = 16;
    static constexpr std::size_t kTypeNameBytes = 128;

    std::uint32_t magic_;
    std::uint32_t formatAndSize_; // format version in the low half, header size in the high half
    std::uint32_t byteOrder_;
    std::uint32_t slotSize_;
    std::uint32_t ravoId_;
    std::uint32_t valueSize_;
    std::uint32_t tableSize_;
    std::uint32_t flags_;
    std::uint32_t pageSize_;
    [[maybe_unused]] std::uint32_t pad36_;
    std::uint64_t creationTime_;
    std::uint64_t typeName_[kTypeNameBytes / 8];
    [[maybe_unused]] std::uint64_t pad176_[46];
    [[maybe_unused]] std::uint32_t pad544_;
    std::uint32_t runtimeWord_; // the runtime flags in the high half
    [[maybe_unused]] std::uint32_t pad552_;
    std::uint32_t occupiedSlots_;
    std::uint32_t freeHead_;
    std::uint32_t highWaterNumSlots_;
    std::uint32_t hashSeed_;
    [[maybe_unused]] std::uint32_t pad572_;
    std::uint64_t numSlots_;
    std::uint32_t highWaterOccupancy_;
    [[maybe_unused]] std::uint32_t pad588_;
    std::uint64_t scratchpad_;

    friend struct SlotHeaderLayout;
};

} // namespace Vesk
