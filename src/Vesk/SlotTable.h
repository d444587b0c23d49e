#pragma once

// The slot file as both its writer and its readers see it: header, lookaside slot, slots.
//
//   offset      size        content
//   0           600         common header (Vesk/SlotHeaderCommon.h)
//   600         slotSize    the lookaside slot
//   headerSize  n slotSize  slots 0 to n - 1
//
// with slotSize = 16 + size of the value and headerSize = 600 + slotSize.

#include "Mem/Mapping.h"
#include "Mem/Tracked.h"
#include "Mem/VersionAnchor.h"
#include "Pello/Debug.h"
#include "Vesk/SlotHeaderCommon.h"
#include "Vesk/SlotWords.h"

#include <cstdint>
#include <memory>

namespace Vesk {

/// What a slot file is told by its name, its sizes and its header, whoever maps it.
struct SlotFile {
    static constexpr const char* FILENAME = "slots";

    static std::uint32_t headerSize(const SlotFileShape& shape) {
        return SlotHeaderCommon::kSize + shape.slotSize;
    }
    /// Throws `RuntimeException` when that overflows.
    static std::uint64_t size(const SlotFileShape& shape, std::uint32_t numSlots);

    /// Checks a header against the size of the file. Never throws; the reason is in `error`, and
    /// traced at level 0.
    static bool validate(const Pello::Platform::DebugHandler& handler,
                         const SlotHeaderCommon& header, const SlotFileShape& shape,
                         std::uint64_t memSize, SharedMem::RavoId id, Pello::String& error);
};

/// The part that depends on sizes only, not on types.
class SlotTableBase : public Pello::Debuggable {
  public:
    static constexpr const char* FILENAME = SlotFile::FILENAME;

    SlotTableBase(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                  const Mem::OruRootPath& rootPath, Mem::SharedMemWrapper::Options options,
                  SlotFileShape shape);
    virtual ~SlotTableBase() = default;
    SlotTableBase(const SlotTableBase&) = delete;
    SlotTableBase& operator=(const SlotTableBase&) = delete;

    virtual void detach();
    virtual std::uint32_t capacity() const = 0;

    SlotHeaderCommon& header() const { return *header_; }
    bool attached() const { return header_ != nullptr; }
    Mem::Mapping& mapping() const { return *mapping_.get(); }
    /// Registers the mapping with the memory tracker, as a block of that type.
    void trackMapping(const std::type_info& tag) { mapping_.track(tag); }
    const Mem::OruRootPath& rootPath() const { return rootPath_; }

    std::uint32_t slotSize() const { return shape_.slotSize; }
    std::uint32_t headerSize() const { return SlotFile::headerSize(shape_); }
    std::uint64_t fileSize(std::uint32_t numSlots) const {
        return SlotFile::size(shape_, numSlots);
    }

    bool validateHeader(std::uint64_t memSize, SharedMem::RavoId id, Pello::String& error) const {
        return SlotFile::validate(*debugHandler(), *header_, shape_, memSize, id, error);
    }

    /// The last slot whose value was handed out.
    const Mem::VersionAnchor& lastRead() const { return lastRead_; }
    void lastReadIs(const SlotWords& slot) {
        const auto* const base = reinterpret_cast<const std::byte*>(header_);
        const auto offset = reinterpret_cast<const std::byte*>(&slot.sequenceWord) - base;
        lastRead_ = {slot.sequence(), static_cast<std::uint32_t>(offset), base};
    }
    void lastReadIsNone() { lastRead_ = {}; }

    [[noreturn]] void raiseOutOfRange(std::uint32_t index) const;

  protected:
    void numSlotsIs(std::uint32_t numSlots);

    const Mem::OruRootPath& rootPath_;
    SlotFileShape shape_;
    Mem::Tracked<Mem::SharedMemWrapper> mapping_;
    SlotHeaderCommon* header_ = nullptr;
    std::uint32_t numSlots_ = 0;
    std::byte* slots_ = nullptr;
    std::uint32_t highestSlot_ = 0;
    Mem::VersionAnchor lastRead_;
};

/// Slots of one value type. `Base` is `SlotTableBase` or what the writer adds to it.
template <class Ops, class Base = SlotTableBase>
class SlotTable : public Base {
  public:
    using Value = typename Ops::Value;

    static constexpr std::uint32_t kSlotSize = sizeof(SlotWords) + sizeof(Value);
    static constexpr std::uint32_t kHeaderSize = SlotHeaderCommon::kSize + kSlotSize;

    using Base::Base;

    /// The slot of an index that came from shared memory. Throws `CorruptionDetectedException`
    /// when there is no such slot.
    SlotWords& slot(std::uint32_t index) const {
        if (index > this->highestSlot_) [[unlikely]]
            this->raiseOutOfRange(index);
        return *reinterpret_cast<SlotWords*>(this->slots_ + std::size_t{index} * kSlotSize);
    }

    std::uint32_t highestSlot() const { return this->highestSlot_; }

    SlotWords& lookaside() const {
        return *reinterpret_cast<SlotWords*>(reinterpret_cast<std::byte*>(this->header_) +
                                             SlotHeaderCommon::kSize);
    }
};

/// Keeps a pointer of a caller right while the slot file may move: when the pointer lies inside
/// the mapping now, it is re-based at the end of the scope, also when an exception passes.
template <class T>
class AutoMemMove {
  public:
    AutoMemMove(const Mem::Mapping& mapping, T*& pointer)
        : mapping_(mapping)
        , pointer_(pointer) {
        const auto* const byte = reinterpret_cast<const std::byte*>(pointer);
        inside_ = byte >= mapping.base() && byte < mapping.base() + mapping.size();
        if (inside_) offset_ = byte - mapping.base();
    }
    ~AutoMemMove() {
        if (inside_) pointer_ = reinterpret_cast<T*>(mapping_.base() + offset_);
    }
    AutoMemMove(const AutoMemMove&) = delete;
    AutoMemMove& operator=(const AutoMemMove&) = delete;

  private:
    const Mem::Mapping& mapping_;
    T*& pointer_;
    bool inside_;
    std::ptrdiff_t offset_ = 0;
};

} // namespace Vesk
