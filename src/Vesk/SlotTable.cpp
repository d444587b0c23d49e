#include "Vesk/SlotTable.h"

#include "Pello/Util.h"

#include <utility>

namespace Vesk {

SlotTableBase::SlotTableBase(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                             const Mem::OruRootPath& rootPath,
                             Mem::SharedMemWrapper::Options options, SlotFileShape shape)
    : Debuggable(std::move(handler))
    , rootPath_(rootPath)
    , shape_(std::move(shape))
    , mapping_(rootPath, FILENAME, options) {}

void SlotTableBase::detach() {
    PELLO_TRACE(*this, 5, Pello::SourceTag("SlotTable", "Vesk/SlotTable", "detach"), "{}", "");
    mapping_->detach();
    header_ = nullptr;
    lastReadIsNone();
}

std::uint64_t SlotFile::size(const SlotFileShape& shape, std::uint32_t numSlots) {
    return Pello::Util::fileSizeHelper(numSlots, shape.slotSize, headerSize(shape));
}

bool SlotFile::validate(const Pello::Platform::DebugHandler& handler,
                        const SlotHeaderCommon& header, const SlotFileShape& shape,
                        std::uint64_t memSize, SharedMem::RavoId id, Pello::String& error) {
    const Pello::SourceTag tag("SlotTable::Header", "Vesk/SlotTable", "validate");
    if (!header.validate(handler, SlotHeaderCommon::kSize, memSize, id, shape, error)) {
        return false;
    }
    const std::uint32_t numSlots = header.numSlots().value;
    if (memSize < headerSize(shape)) {
        error = fmt::format("bad header file size: {} wanted:{}", memSize, headerSize(shape));
    } else {
        try {
            const std::uint64_t needed = size(shape, numSlots);
            if (needed > memSize) {
                error = fmt::format("bad shmem size:{} wanted:{} for {} slots", memSize, needed,
                                    numSlots);
            } else if (const std::uint32_t highWater = header.highWaterNumSlots();
                       numSlots > highWater) {
                error = fmt::format("bad numSlots:{} highWater:{}", numSlots, highWater);
            } else {
                return true;
            }
        } catch (const Pello::RuntimeException& e) {
            error = fmt::format("bad numSlots: {} message: {}", numSlots, e.message());
        }
    }
    PELLO_TRACE(handler, 0, tag, "{}", error);
    return false;
}

void SlotTableBase::raiseOutOfRange(std::uint32_t index) const {
    Pello::raise<Pello::CorruptionDetectedException>(
        {"SlotWriterTable::Slots", "Vesk/SlotWriter", "operator[]"},
        "out-of-range index: {} max:{}", index, highestSlot_);
}

void SlotTableBase::numSlotsIs(std::uint32_t numSlots) {
    numSlots_ = numSlots;
    slots_ = numSlots != 0 ? mapping_->base() + headerSize() : nullptr;
    highestSlot_ = numSlots != 0 ? numSlots - 1 : 0;
}

} // namespace Vesk
