#include "Vesk/SlotReader.h"

#include "Pello/Exception.h"

#include <utility>

namespace Vesk {

namespace {

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"SlotReaderTable", "Vesk/SlotReader", operation, line};
}

using Count = Mem::VersionedRef<std::uint32_t>;

} // namespace

SlotReaderBase::SlotReaderBase(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                               const Mem::OruRootPath& rootPath, SlotFileShape shape,
                               Reader::Counters& counters, std::uint32_t& hashSeed)
    : Debuggable(std::move(handler))
    , counters_(counters)
    , mapping_(rootPath, SlotFile::FILENAME)
    , rootPath_(rootPath)
    , shape_(std::move(shape))
    , hashSeed_(hashSeed)
    , snapshot_(SlotFile::headerSize(shape_) / sizeof(std::uint64_t)) {}

bool SlotReaderBase::attach() {
    if (mapping_.fileSize() == 0) {
        PELLO_TRACE(*this, 0, tagOf("attach"), "{}", "no shared memory region");
        return false;
    }
    const std::uint32_t size = SlotFile::headerSize(shape_);
    if (!mapping_.attach(size)) {
        PELLO_TRACE(*this, 0, tagOf("attach"), "cannot attach to shmem size:{}", size);
        return false;
    }
    takeSnapshot();
    traceHeader("attach");
    forgetSlots();
    hashSeed_ = snapshot().hashSeed();
    return true;
}

void SlotReaderBase::detach() {
    PELLO_TRACE(*this, 5, tagOf("detach"), "{}", "delegating to SlotTable::detach()");
    PELLO_TRACE(*this, 5, Pello::SourceTag("SlotTable", "Vesk/SlotTable", "detach"), "{}", "");
    mapping_.detach();
    forgetSlots();
    lastReadIsNone();
}

void SlotReaderBase::forgetSlots() {
    numSlots_ = {Count::kNoVersion, 0};
    slots_ = nullptr;
    indexable_ = 0;
}

std::uint64_t SlotReaderBase::takeSnapshot() {
    std::uint32_t version = header().numSlots().version;
    while (true) {
        Mem::copyWordsOut(snapshot_.data(), mapping_.base(),
                          snapshot_.size() * sizeof(std::uint64_t));
        const std::uint64_t fileSize = mapping_.fileSize();
        const std::uint32_t again = header().numSlots().version;
        if (again == version) return fileSize;
        version = again;
    }
}

bool SlotReaderBase::doResize() {
    if (!attached() || !changed()) return false;
    const Pello::SourceTag tag = tagOf("doResize");
    const std::uint64_t realSize = takeSnapshot();
    if (const SharedMem::RavoId id = snapshot().ravoId(); id != ravoId_) {
        Pello::raise<Pello::CorruptionDetectedException>(tag, "{}: bad ravo id:{} wanted:{}",
                                                         mapping_.name(), id, ravoId_);
    }
    const Count wanted = snapshot().numSlots();
    std::uint64_t needed = 0;
    try {
        needed = SlotFile::size(shape_, wanted.value);
    } catch (const Pello::RuntimeException& e) {
        const Pello::String text =
            fmt::format("bad newNumSlots:{} message:{}", wanted.value, e.message());
        PELLO_TRACE(*this, 0, tag, "{}", text);
        Pello::raise<Pello::CorruptionDetectedException>(tag, "{}", text);
    }
    if (needed > realSize) {
        Pello::raise<Pello::CorruptionDetectedException>(
            tag,
            "requesting to map {} {} slots. Requested file resize to {} but real file size is {}",
            mapping_.name(), wanted.value, needed, realSize);
    }
    PELLO_TRACE(*this, 2, tag, "{} from {} slots to {}", rootPath_, numSlots_.value, wanted.value);
    const std::byte* const oldBase = mapping_.base();
    const std::uint32_t oldCount = numSlots_.value;
    if (!mapping_.resize(needed)) {
        forgetSlots();
        Pello::raise<Pello::MemoryResourceException>(
            tag, "failed to resize {} from {} to {} slots, needed {} bytes. Reason: {}",
            mapping_.name(), oldCount, wanted.value, needed, mapping_.error());
    }
    if (mapping_.base() != oldBase) {
        PELLO_TRACE(*this, 5, tag, "changed base address mapping from {} to {}",
                    static_cast<const void*>(oldBase), static_cast<const void*>(mapping_.base()));
        ++counters_.remaps;
    }
    Mem::VersionAnchor& anchor = notificationAnchor_;
    if (anchor.offset < Mem::VersionAnchor::kNone &&
        std::uint64_t{anchor.offset} + sizeof(std::uint32_t) <= needed) {
        anchor.base = mapping_.base();
    } else {
        anchor.offset = Mem::VersionAnchor::kInvalidated;
    }
    ++counters_.slotResizes;
    traceHeader("onResize");
    numSlots_ = wanted;
    slots_ = mapping_.base() + SlotFile::headerSize(shape_);
    indexable_ = wanted.value;
    PELLO_TRACE(*this, 5, tag, "{}", "successful");
    return true;
}

bool SlotReaderBase::refresh() {
    const bool isDue = attached() ? mapping_.patched() : mapping_.isOpen();
    if (!isDue) return false;
    forgetSlots();
    const std::uint32_t size = SlotFile::headerSize(shape_);
    if (mapping_.resize(size)) return true;
    Pello::raise<Pello::MemoryResourceException>(
        tagOf("refresh"), "failed to resize {} from {} to {} slots, needed {} bytes. Reason: {}",
        mapping_.name(), 0, 0, size, mapping_.error());
}

bool SlotReaderBase::validate(SharedMem::RavoId id, Pello::String& error) {
    const std::uint64_t fileSize = takeSnapshot();
    ravoId_ = id;
    hashSeed_ = snapshot().hashSeed(); // the file may have been formatted anew since `attach`
    return SlotFile::validate(*debugHandler(), snapshot(), shape_, fileSize, id, error);
}

void SlotReaderBase::traceHeader(const char* operation) const {
    PELLO_TRACE(*this, 3, tagOf(operation), "{}", snapshot().toString());
}

void SlotReaderBase::raiseOutOfRange(std::uint32_t index) const {
    Pello::raise<Pello::CorruptionDetectedException>(
        tagOf("operator[]"), "out-of-range index:{} numSlots:{}", index, indexable_);
}

} // namespace Vesk
