#include "Vesk/SlotWriter.h"

#include "Mem/Mapping.h"
#include "Vesk/Util.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

namespace Vesk {

using Mem::StopPoint;

namespace {

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"SlotWriterTable", "Vesk/SlotWriter", operation, line};
}

/// The smallest integer not below a tenth more than `n`, in single precision: the counts that a
/// table grows through are part of what its users see.
std::uint32_t grown(std::uint32_t n) {
    return static_cast<std::uint32_t>(std::ceil(static_cast<float>(n) * 1.1F));
}

} // namespace

SlotWriterBase::SlotWriterBase(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                               const Mem::OruRootPath& rootPath,
                               Mem::SharedMemWrapper::Options options, SlotFileShape shape,
                               bool notifying, const void* defaultValue, Writer::Counters& counters,
                               std::uint32_t& hashSeed, SlotWriterOptions tableOptions)
    : SlotTableBase(std::move(handler), rootPath, options, std::move(shape))
    , notifying_(notifying)
    , defaultValue_(defaultValue)
    , counters_(counters)
    , hashSeed_(hashSeed)
    , options_(tableOptions)
    , minimumCapacity_(options_.fixedSize ? options_.tableSize : largestCapacityInPage()) {}

std::uint32_t SlotWriterBase::largestCapacityInPage() const {
    if (Mem::pageSize_ <= headerSize()) return 1;
    const auto slots = static_cast<std::uint32_t>((Mem::pageSize_ - headerSize()) / slotSize());
    return slots == 0 ? 1 : std::bit_floor(slots);
}

unsigned SlotWriterBase::attach(SharedMem::RavoId id) {
    detach();
    Mem::Mapping& file = mapping();
    const std::uint64_t existing = file.existingSize();
    const std::uint64_t size = fileSize(minimumCapacity_);
    if (!file.attachAs(size)) {
        Pello::raise<Pello::InvalidInitializeException>(tagOf("attach"),
                                                        "cannot attach to shmem {} size:{}: {}",
                                                        file.name(), size, file.error());
    }
    header_ = &SlotHeaderCommon::at(file.base());
    unsigned result = 2;
    if (existing == 0 || !takeOver(id)) {
        if (existing != 0) reformat();
        format(id);
        result = existing == 0 ? 1 : 4;
    }
    if (result == 4) {
        PELLO_TRACE(*this, 1, tagOf("attach"), "re-formatted {}", file.name());
    } else {
        PELLO_TRACE(*this, 2, tagOf("attach"), "{}{}",
                    result == 1 ? "to new file " : "to existing ", file.name());
    }
    PELLO_TRACE(*this, 3, Pello::SourceTag("SlotTable::Header", "Vesk/SlotTable", "toString"), "{}",
                header_->toString());
    return result;
}

bool SlotWriterBase::load(std::span<const std::byte> image, SharedMem::RavoId id,
                          Pello::String& error) {
    detach();
    if (!mapping().load(image, headerSize())) {
        error = mapping().error();
        return false;
    }
    header_ = &SlotHeaderCommon::at(mapping().base());
    if (!validateHeader(image.size(), id, error)) return false;
    hashSeed_ = header_->hashSeed();
    numSlotsIs(header_->numSlots().value);
    return true;
}

bool SlotWriterBase::takeOver(SharedMem::RavoId id) {
    const std::uint32_t numSlots = header_->numSlots().value;
    const bool wrongCapacity = options_.fixedSize && numSlots != minimumCapacity_;
    Pello::String error;
    const bool valid = header_->ravoId() == id && validateHeader(mapping().size(), id, error);
    if (wrongCapacity) {
        PELLO_TRACE(*this, 1, tagOf("attach"),
                    "wanted capacity:{} for fixed-size table, but existing file has capacity:{}",
                    minimumCapacity_, numSlots);
    }
    if (wrongCapacity || !valid) return false;
    hashSeed_ = header_->hashSeed();
    remapForAttach(fileSize(numSlots));
    numSlotsIs(numSlots);
    shrinkThresholdUpdate();
    return true;
}

void SlotWriterBase::reformat() {
    remapForAttach(mapping().existingSize());
    remapForAttach(fileSize(minimumCapacity_));
}

void SlotWriterBase::remapForAttach(std::uint64_t size) {
    if (!mapping().resize(size)) {
        Pello::raise<Pello::MemoryResourceException>(tagOf("attach"),
                                                     "failed to resize {} to size {} : {}",
                                                     mapping().name(), size, mapping().error());
    }
    header_ = &SlotHeaderCommon::at(mapping().base());
}

void SlotWriterBase::format(SharedMem::RavoId id) {
    const std::uint32_t previousSeed = header_->hashSeed();
    hashSeed_ = Util::newHashSeed(previousSeed, seedBeforeFormat_);
    seedBeforeFormat_ = previousSeed;
    SlotHeaderCommon image(*debugHandler(), SlotHeaderCommon::kSize, slotSize(), minimumCapacity_,
                           options_.tableSize, notifying_ ? SlotHeaderCommon::kNotifying : 0U, id,
                           shape_.typeName, shape_.valueSize, hashSeed_);
    image.formatInto(mapping().base());
    auto& lookaside = *reinterpret_cast<SlotWords*>(mapping().base() + SlotHeaderCommon::kSize);
    lookaside.link.format(StopPoint::slotFormat, 0, SlotLink::kEnd);
    Mem::store(lookaside.sequenceWord, 0);
    Mem::store(lookaside.rhashWord, 0);
    Mem::copyWordsIn(StopPoint::lookasideValue, lookaside.value(), defaultValue_, shape_.valueSize);
    numSlotsIs(header_->numSlots().value);
    shrinkThresholdUpdate();
    initializeSlots(0, numSlots_);
    header_->ravoIdIs(id);
}

void SlotWriterBase::detach() {
    PELLO_TRACE(*this, 5, tagOf("detach"), "{}", "");
    numSlotsIs(0);
    SlotTableBase::detach();
}

void SlotWriterBase::cleanup() {
    PELLO_TRACE(*this, 3, tagOf("cleanup"), "removing file: {}", mapping().name());
    mapping().removeFile();
}

void SlotWriterBase::initializeSlots(std::uint32_t start, std::uint32_t end) {
    if (end == 0 || start >= end) {
        Pello::fatal(debugHandler().get(), tagOf("initializeSlots"),
                     "bad index range, start: {} end: {}", start, end);
    }
    if (header_->freeHead() != SlotLink::kEnd) {
        Pello::fatal(debugHandler().get(), tagOf("initializeSlots"), "free-list is not empty");
    }
    std::uint32_t next = SlotLink::kEnd;
    for (std::uint32_t i = end; i-- > start;) {
        SlotWords& slot = wordsOf(i);
        Mem::store(slot.sequenceWord, 0);
        Mem::store(slot.rhashWord, 0);
        Mem::copyWordsIn(StopPoint::slotValue, slot.value(), defaultValue_, shape_.valueSize);
        slot.link.format(StopPoint::slotFormat, SlotLink::kStateStep, next);
        next = i;
    }
    header_->freeHeadIs(start);
}

bool SlotWriterBase::grow() {
    const std::uint32_t old = numSlots_;
    const std::uint32_t occupied = header_->occupiedSlots();
    if (occupied != old) {
        Pello::raise<Pello::CorruptionDetectedException>(
            tagOf("grow"),
            "the slot table is full but numSlots: {} and occupiedSlots: {} are not equal",
            header_->numSlots(), occupied);
    }
    if (options_.fixedSize) return false;
    const std::uint32_t wanted = grown(old);
    resize(wanted);
    numSlotsIs(wanted);
    initializeSlots(old, wanted);
    header_->highWaterNumSlotsIs(std::max(header_->highWaterNumSlots(), wanted));
    header_->numSlotsIs(wanted);
    PELLO_TRACE(*this, 2, tagOf("grow"), "{} from {} slots to {}", rootPath_, old,
                header_->numSlots());
    numSlotsIs(header_->numSlots().value);
    shrinkThresholdUpdate();
    ++counters_.slotGrowths;
    return true;
}

SlotWords& SlotWriterBase::wordsOf(std::uint32_t index) const {
    if (index > highestSlot_) raiseOutOfRange(index);
    return *reinterpret_cast<SlotWords*>(slots_ + std::size_t{index} * shape_.slotSize);
}

void SlotWriterBase::purgeFreeSlots(std::uint32_t limit, Pello::CriticalTaskSlices slices) {
    const Pello::SourceTag tag = tagOf("purgeFreeSlots");
    if (numSlots_ <= limit) {
        Pello::fatal(debugHandler().get(), tag, "bad threshold: {} numSlots:{}", limit, numSlots_);
    }
    if (header_->freeHead() == SlotLink::kEnd) {
        Pello::fatal(debugHandler().get(), tag, "free-list is empty");
    }
    std::uint32_t count = 0;
    SlotWords* kept = nullptr;
    // A list that comes back to itself is longer than the table.
    for (std::uint32_t index = header_->freeHead(); index != SlotLink::kEnd && count <= numSlots_;
         ++count) {
        SlotWords& slot = wordsOf(index);
        const std::uint32_t next = slot.link.next();
        if (index < limit) {
            kept = &slot;
        } else {
            PELLO_TRACE(*this, 7, tag, "removing slot id {} from free-list", index);
            if (kept != nullptr) {
                kept->link.nextIs(StopPoint::freeLink, next);
            } else {
                header_->freeHeadIs(next);
            }
        }
        index = next;
        slices.maybeRun();
    }
    const std::uint32_t occupied = header_->occupiedSlots();
    if (std::uint64_t{count} + occupied != numSlots_) {
        Pello::raise<Pello::CorruptionDetectedException>(
            tag,
            "numSlots mismatch, length of freeList: {}, occupiedSlots: {} do not add up to "
            "numSlots: {}",
            count, occupied, header_->numSlots());
    }
}

void SlotWriterBase::shrink(std::uint32_t newNumSlots) {
    const Pello::SourceTag tag = tagOf("shrink");
    PELLO_TRACE(*this, 5, tag, "newNumSlots:{}", newNumSlots);
    const auto old = header_->numSlots();
    header_->numSlotsIs(newNumSlots);
    resize(newNumSlots);
    numSlotsIs(header_->numSlots().value);
    shrinkThresholdUpdate();
    ++counters_.slotShrinks;
    PELLO_TRACE(*this, 2, tag, "{} from {} slots to {}", rootPath_, old, newNumSlots);
}

void SlotWriterBase::resize(std::uint32_t newNumSlots) {
    const Pello::SourceTag tag = tagOf("resize");
    PELLO_TRACE(*this, 5, tag, "{} from {} to {} slots", rootPath_, numSlots_, newNumSlots);
    const std::uint64_t size = fileSize(newNumSlots);
    if (newNumSlots > options_.tableSize) {
        PELLO_TRACE(*this, 5, tag, "overflowing by {} slots", newNumSlots - options_.tableSize);
    }
    std::byte* const oldBase = mapping().base();
    if (!mapping().resize(size)) {
        Pello::raise<Pello::MemoryResourceException>(
            tag, "failed to resize {} from {} to {} slots, needed {} bytes. Reason: {}",
            mapping().name(), numSlots_, newNumSlots, size, mapping().error());
    }
    std::byte* const newBase = mapping().base();
    header_ = &SlotHeaderCommon::at(newBase);
    if (newBase != oldBase) {
        PELLO_TRACE(*this, 5, tag, "remap base address changed from {} to {}",
                    static_cast<const void*>(oldBase), static_cast<const void*>(newBase));
        ++counters_.remaps;
    }
    PELLO_TRACE(*this, 5, tag, "to {} successfully", newNumSlots);
}

void SlotWriterBase::alloc() {
    leaveCriticalSection();
    Pello::raise<TableFullException>(tagOf("alloc"),
                                     "Vesk table full (occupancy:{} tableSize:{}) {}",
                                     header_->occupiedSlots(), options_.tableSize, rootPath_);
}

void SlotWriterBase::shrinkThresholdUpdate() {
    const bool shrinks =
        options_.shrinkSlots && !options_.fixedSize && numSlots_ > minimumCapacity_;
    shrinkThreshold_ = shrinks ? std::bit_floor(numSlots_ - 1) : 0;
    PELLO_TRACE(*this, 5, tagOf("shrinkThreshold"), "shrinkThreshold_:{}", shrinkThreshold_);
}

void SlotWriterBase::checkAttached(const char* operation) const {
    if (!attached()) {
        Pello::fatal(debugHandler().get(), tagOf(operation), "not attached: {}", rootPath_);
    }
}

void SlotWriterBase::failEntry() const {
    checkAttached("enterCriticalSection");
    Pello::fatal(debugHandler().get(), tagOf("enterCriticalSection"),
                 "Vesk reentrancy detected: {}", rootPath_);
}

} // namespace Vesk
