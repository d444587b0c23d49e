#include "VeskCore/BucketReader.h"

#include "Pello/Util.h"

#include <utility>

namespace VeskCore {

using Vesk::SlotLink;

namespace {

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"BucketReader", "VeskCore/BucketReader", operation, line};
}

} // namespace

BucketReader<SlotLink>::BucketReader(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                                     const Mem::OruRootPath& rootPath,
                                     Bucket::ReaderCounters& counters)
    : Debuggable(std::move(handler))
    , mapping_(rootPath, BucketWriter<SlotLink>::FILENAME)
    , counters_(counters) {}

bool BucketReader<SlotLink>::attach() {
    detach();
    if (mapping_.fileSize() == 0) {
        PELLO_TRACE(*this, 0, tagOf("attach"), "{}", "no shared memory region");
        return false;
    }
    if (!mapping_.attach(BucketTable::Header::kSize)) {
        PELLO_TRACE(*this, 0, tagOf("attach"), "cannot attach to shmem {} size:{}: {}",
                    mapping_.name(), BucketTable::Header::kSize, mapping_.error());
        return false;
    }
    return true;
}

void BucketReader<SlotLink>::detach() {
    mapping_.detach();
    forgetWords();
}

void BucketReader<SlotLink>::forgetWords() {
    words_ = nullptr;
    local_ = {Count::kNoVersion, 0};
}

bool BucketReader<SlotLink>::refresh() {
    const bool isDue = attached() ? mapping_.patched() : mapping_.isOpen();
    if (!isDue) return false;
    forgetWords();
    if (mapping_.resize(BucketTable::Header::kSize)) return true;
    Pello::raise<Pello::MemoryResourceException>(
        tagOf("refresh"), "failed to resize {} from {} to {} buckets, needed {} bytes. Reason: {}",
        mapping_.name(), 0, 0, BucketTable::Header::kSize, mapping_.error());
}

auto BucketReader<SlotLink>::snapshot(std::uint64_t& fileSize) const -> Count {
    Count count = published();
    while (true) {
        fileSize = mapping_.fileSize();
        const Count again = published();
        if (again == count) return count;
        count = again;
    }
}

bool BucketReader<SlotLink>::doResize() {
    if (!attached() || !changed()) return false;
    std::uint64_t realSize = 0;
    const Count count = snapshot(realSize);
    const std::uint64_t needed = BucketTable::fileSize(count.value);
    if (!std::has_single_bit(count.value) || needed > realSize) {
        Pello::raise<Pello::CorruptionDetectedException>(
            tagOf("doResize"),
            "requesting to map {} {} buckets. Requested file resize to {} but real file size is {}",
            mapping_.name(), count.value, needed, realSize);
    }
    PELLO_TRACE(*this, 2, tagOf("doResize"), "{} from {} buckets to {}", mapping_.name(),
                local_.value, count.value);
    if (!mapping_.resize(needed)) {
        const std::uint32_t old = local_.value;
        forgetWords();
        Pello::raise<Pello::MemoryResourceException>(
            tagOf("doResize"),
            "failed to resize {} from {} to {} buckets, needed {} bytes. Reason: {}",
            mapping_.name(), old, count.value, needed, mapping_.error());
    }
    words_ = reinterpret_cast<const SlotLink*>(mapping_.base() + BucketTable::Header::kSize);
    local_ = count;
    ++counters_.resizes;
    return true;
}

bool BucketReader<SlotLink>::validate(SharedMem::RavoId id, Pello::String& error) const {
    std::uint64_t realSize = 0;
    const Count count = snapshot(realSize);
    const bool ok = header().validate(count, realSize, id, error);
    if (!ok) PELLO_TRACE(*this, 0, tagOf("validate"), "{}", error);
    return ok;
}

void BucketReader<SlotLink>::raiseOutOfRange(std::uint32_t bucket) const {
    Pello::raise<Pello::CorruptionDetectedException>(
        tagOf("operator[]"), "out-of-range, index:{} max:{}", bucket, local_.value - 1);
}

} // namespace VeskCore
