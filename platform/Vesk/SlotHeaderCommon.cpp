#include "Vesk/SlotHeaderCommon.h"

#include "Mem/Mapping.h"
#include "Pello/Time.h"
#include "Vesk/SlotWords.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace Vesk {

namespace {

constexpr std::uint32_t kMagic = 0x544C5356; // "VSLT"
constexpr std::uint32_t kFormatVersion = 1;
constexpr std::uint32_t kByteOrder = 0x01020304;

constexpr std::uint32_t formatAndSize(std::uint32_t headerSize) {
    return headerSize << 16U | kFormatVersion;
}

} // namespace

struct SlotHeaderLayout {
    using H = SlotHeaderCommon;
    static_assert(sizeof(H) == H::kSize && std::is_trivially_copyable_v<H>);
    static_assert(offsetof(H, slotSize_) == 12 && offsetof(H, ravoId_) == H::kRavoIdOffset);
    static_assert(offsetof(H, valueSize_) == 20 && offsetof(H, tableSize_) == 24);
    static_assert(offsetof(H, flags_) == 28 && offsetof(H, pageSize_) == 32);
    static_assert(offsetof(H, creationTime_) == 40 && offsetof(H, typeName_) == 48);
    static_assert(offsetof(H, runtimeWord_) == 548 && offsetof(H, occupiedSlots_) == 556);
    static_assert(offsetof(H, freeHead_) == 560 && offsetof(H, highWaterNumSlots_) == 564);
    static_assert(offsetof(H, hashSeed_) == 568 && offsetof(H, numSlots_) == 576);
    static_assert(offsetof(H, highWaterOccupancy_) == 584 && offsetof(H, scratchpad_) == 592);
};

SlotHeaderCommon::SlotHeaderCommon(const Pello::Platform::DebugHandler& handler,
                                   std::uint16_t headerSize, std::uint32_t slotSize,
                                   std::uint32_t numSlots, std::uint32_t tableSize,
                                   std::uint32_t flags, SharedMem::RavoId id,
                                   const Pello::String& typeName, std::uint32_t valueSize,
                                   std::uint32_t hashSeed)
    : magic_(kMagic)
    , formatAndSize_(formatAndSize(headerSize))
    , byteOrder_(kByteOrder)
    , slotSize_(slotSize)
    , ravoId_(id.word())
    , valueSize_(valueSize)
    , tableSize_(tableSize)
    , flags_(flags)
    , pageSize_(static_cast<std::uint32_t>(Mem::pageSize_))
    , pad36_(0)
    , creationTime_(static_cast<std::uint64_t>(Pello::wallTime() * 1e9))
    , typeName_{}
    , pad176_{}
    , pad544_(0)
    , runtimeWord_(0)
    , pad552_(0)
    , occupiedSlots_(0)
    , freeHead_(SlotLink::kEnd)
    , highWaterNumSlots_(numSlots)
    , hashSeed_(hashSeed)
    , pad572_(0)
    , numSlots_(Mem::VersionedRef<std::uint32_t>{0, numSlots}.toWord())
    , highWaterOccupancy_(0)
    , pad588_(0)
    , scratchpad_(0) {
    if (typeName.size() >= kTypeNameBytes) {
        const Pello::SourceTag tag("SlotHeaderCommon", "Vesk/SlotHeaderCommon", "SlotHeaderCommon");
        Pello::fatal(&handler, tag, "type name too long: {} wanted below:{}", typeName,
                     kTypeNameBytes);
    }
    std::memcpy(typeName_, typeName.data(), typeName.size());
}

void SlotHeaderCommon::formatInto(std::byte* base) {
    ravoId_ = SharedMem::RavoId().word();
    numSlots_ = at(base).numSlots().next(numSlots().value).toWord();
    Mem::copyWordsIn(Mem::StopPoint::headerFormat, base, this, kSize);
}

bool SlotHeaderCommon::validate(const Pello::Platform::DebugHandler& handler,
                                std::uint16_t headerSize, std::uint64_t memSize,
                                SharedMem::RavoId id, const SlotFileShape& shape,
                                Pello::String& error) const {
    const auto check = [&error](const char* what, auto found, auto wanted) {
        if (found != wanted) error = fmt::format("bad {}:{} wanted:{}", what, found, wanted);
        return found == wanted;
    };
    const auto checkSlotCount = [this, &error] {
        const auto count = numSlots();
        // No writer stores that version.
        const bool never = count.version == Mem::VersionedRef<std::uint32_t>::kNoVersion;
        if (count.value == 0) {
            error = "bad numSlots:0";
        } else if (never) {
            error = fmt::format("bad numSlots:{}", count);
        }
        return count.value != 0 && !never;
    };
    const auto checkSize = [memSize, headerSize, &error] {
        if (memSize < headerSize) {
            error = fmt::format("bad header file size: {} wanted:{}", memSize, headerSize);
        }
        return memSize >= headerSize;
    };
    const bool ok = checkSize() && check("magic", Mem::load(magic_), kMagic) &&
                    check("byte order", Mem::load(byteOrder_), kByteOrder) &&
                    check("format", Mem::load(formatAndSize_), formatAndSize(headerSize)) &&
                    check("ravo id", ravoId(), id) &&
                    check("slot size", Mem::load(slotSize_), shape.slotSize) &&
                    check("value size", Mem::load(valueSize_), shape.valueSize) &&
                    check("type name", typeName(), shape.typeName) && checkSlotCount();
    if (!ok) {
        PELLO_TRACE(handler, 0,
                    Pello::SourceTag("SlotHeaderCommon", "Vesk/SlotHeaderCommon", "validate"), "{}",
                    error);
    }
    return ok;
}

Pello::String SlotHeaderCommon::typeName() const {
    char name[kTypeNameBytes];
    Mem::copyOut<kTypeNameBytes>(name, typeName_);
    return {name, std::find(name, name + kTypeNameBytes, '\0')};
}

Pello::String SlotHeaderCommon::toString() const {
    return fmt::format("magic:{:#x} format:{:#x} slotSize:{} valueSize:{} tableSize:{} flags:{} "
                       "pageSize:{} ravoId:{} type:{} created:{}ns runtimeFlags:{:x} "
                       "occupiedSlots:{} freeHead:{} highWaterNumSlots:{} hashSeed:{:#x} "
                       "numSlots:{} highWaterOccupancy:{} scratchpad:{:#x}",
                       Mem::load(magic_), Mem::load(formatAndSize_), Mem::load(slotSize_),
                       Mem::load(valueSize_), Mem::load(tableSize_), Mem::load(flags_),
                       Mem::load(pageSize_), ravoId(), typeName(), Mem::load(creationTime_),
                       runtimeFlags(), occupiedSlots(), freeHead(), highWaterNumSlots(), hashSeed(),
                       numSlots(), highWaterOccupancy(), scratchpad());
}

} // namespace Vesk
