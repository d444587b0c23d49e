#include "VeskCore/BucketWriter.h"

#include "Pello/Util.h"
#include "Vesk/Util.h"

#include <utility>

namespace VeskCore {

using Mem::StopPoint;
using Vesk::SlotLink;
using VersionedCount = Mem::VersionedRef<std::uint32_t>;

namespace {

constexpr std::uint32_t kMagic = 0x544B4256; // "VBKT"
constexpr std::uint32_t kFormatVersion = 1;
constexpr std::uint32_t kInitialBuckets = 2;

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"BucketWriter", "VeskCore/BucketWriter", operation, line};
}

} // namespace

std::uint64_t BucketTable::fileSize(std::uint32_t buckets) {
    return Pello::Util::fileSizeHelper(buckets, sizeof(SlotLink), Header::kSize);
}

Pello::String BucketTable::Header::toString() const {
    return fmt::format("magic:{:#x} ravoId:{} format:{} flags:{} numBuckets:{}", Mem::load(magic),
                       Mem::load(ravoId), Mem::load(format), Mem::load(flags),
                       VersionedCount::loadFrom(numBuckets));
}

bool BucketTable::Header::validate(VersionedCount count, std::uint64_t size, SharedMem::RavoId id,
                                   Pello::String& error) const {
    const std::uint32_t n = count.value;
    if (Mem::load(magic) != kMagic || Mem::load(format) != kFormatVersion) {
        error = fmt::format("bad bucket header magic:{:#x} format:{}", Mem::load(magic),
                            Mem::load(format));
    } else if (Mem::load(ravoId) != id.word()) {
        error = fmt::format("bad bucket ravo id:{} wanted:{}", Mem::load(ravoId), id);
    } else if (!std::has_single_bit(n)) {
        error = fmt::format("bad numBuckets:{}", n);
    } else if (count.version == VersionedCount::kNoVersion) {
        error = fmt::format("bad numBuckets:{}", count); // no writer stores that version
    } else if (BucketTable::fileSize(n) > size) {
        error = fmt::format("bad bucket file size:{} wanted:{} for {} buckets", size,
                            BucketTable::fileSize(n), n);
    } else {
        return true;
    }
    return false;
}

BucketWriter<SlotLink>::BucketWriter(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                                     const Mem::OruRootPath& rootPath,
                                     Mem::SharedMemWrapper::Options options,
                                     Bucket::WriterCounters& counters)
    : Debuggable(std::move(handler))
    , mapping_(rootPath, FILENAME, options)
    , counters_(counters) {}

unsigned BucketWriter<SlotLink>::attach(SharedMem::RavoId id) {
    detach();
    const bool existed = mapping_->existingSize() != 0;
    const std::uint64_t size = BucketTable::fileSize(kInitialBuckets);
    if (!mapping_->attachAs(size)) {
        Pello::raise<Pello::InvalidInitializeException>(tagOf("attach"),
                                                        "cannot attach to shmem {} size:{}: {}",
                                                        mapping_->name(), size, mapping_->error());
    }
    Pello::String error;
    if (existed && sound(id, error)) {
        adopt();
        PELLO_TRACE(*this, 2, tagOf("attach"), "to existing {}", mapping_->name());
        return 2;
    }
    if (!mapping_->resize(size)) {
        Pello::raise<Pello::MemoryResourceException>(tagOf("attach"),
                                                     "failed to resize {} to size {} : {}",
                                                     mapping_->name(), size, mapping_->error());
    }
    format(id);
    adopt();
    PELLO_TRACE(*this, existed ? 1 : 2, tagOf("attach"), "{} {}",
                existed ? "re-formatted" : "to new file", mapping_->name());
    return existed ? 4 : 1;
}

bool BucketWriter<SlotLink>::load(std::span<const std::byte> image, SharedMem::RavoId id,
                                  Pello::String& error) {
    detach();
    if (!mapping_->load(image, BucketTable::fileSize(kInitialBuckets))) {
        error = mapping_->error();
        return false;
    }
    if (!sound(id, error)) return false;
    adopt();
    return true;
}

void BucketWriter<SlotLink>::format(SharedMem::RavoId id) {
    // Two buckets in successor order: bucket 0, then bucket 1, then the end of the table.
    SlotLink* const words =
        reinterpret_cast<SlotLink*>(mapping_->base() + BucketTable::Header::kSize);
    words[0].format(StopPoint::bucketFormat, SlotLink::kStateStep, SlotLink::toBucket(1));
    words[1].format(StopPoint::bucketFormat, SlotLink::kStateStep, SlotLink::kEnd);
    BucketTable::Header image{};
    image.magic = kMagic;
    image.ravoId = id.word();
    image.format = kFormatVersion;
    // Goes on from the old version, so that attached readers notice the re-format.
    image.numBuckets = VersionedCount::loadFrom(header().numBuckets).next(kInitialBuckets).toWord();
    Mem::copyWordsIn(StopPoint::bucketFormat, mapping_->base(), &image, sizeof image);
}

void BucketWriter<SlotLink>::adopt() {
    words_ = reinterpret_cast<SlotLink*>(mapping_->base() + BucketTable::Header::kSize);
    numBuckets_ = VersionedCount::loadFrom(header().numBuckets).value;
    counters_.mappedSize = mapping_->size();
}

void BucketWriter<SlotLink>::detach() {
    mapping_->detach();
    words_ = nullptr;
    numBuckets_ = 0;
}

void BucketWriter<SlotLink>::resize(std::uint32_t n) {
    const std::uint64_t size = BucketTable::fileSize(n);
    if (!mapping_->resize(size)) {
        Pello::raise<Pello::MemoryResourceException>(
            tagOf("resize"),
            "failed to resize {} from {} to {} buckets, needed {} bytes. Reason: {}",
            mapping_->name(), numBuckets_, n, size, mapping_->error());
    }
    adopt();
    ++counters_.resizes;
}

void BucketWriter<SlotLink>::publishNumBuckets(std::uint32_t n) {
    std::uint64_t& word = header().numBuckets;
    VersionedCount::loadFrom(word).next(n).publishTo(StopPoint::bucketCount, word);
    numBuckets_ = n;
}

bool BucketWriter<SlotLink>::sound(SharedMem::RavoId id, Pello::String& error) const {
    const BucketTable::Header& h = header();
    return h.validate(VersionedCount::loadFrom(h.numBuckets), mapping_->size(), id, error);
}

bool BucketWriter<SlotLink>::validate(SharedMem::RavoId id, Pello::String& error) const {
    const bool ok = sound(id, error);
    if (!ok) PELLO_TRACE(*this, 0, tagOf("validate"), "{}", error);
    return ok;
}

void BucketWriter<SlotLink>::validateFile() const { Vesk::Util::validateFile(*mapping_.get()); }

} // namespace VeskCore
