#pragma once

// The bucket file as a reader maps it. The layout is that of VeskCore/BucketWriter.h.
//
// The reader maps the header when it attaches, and the words with the first `doResize`; from then
// on it follows the version of the bucket count. A word is read whole: its version and where it
// leads are always of one store.

#include "Mem/ReaderMapping.h"
#include "Mem/VersionedRef.h"
#include "VeskCore/BucketWriter.h"

namespace VeskCore {

template <class Link>
class BucketReader;

template <>
class BucketReader<Vesk::SlotLink> : public Pello::Debuggable {
  public:
    BucketReader(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                 const Mem::OruRootPath& rootPath, Bucket::ReaderCounters& counters);

    /// Maps the header. False, with a trace at level 0, when there is no such file.
    bool attach();
    void detach();
    /// Maps the words anew when the writer has published another count; true when it had. Throws
    /// `CorruptionDetectedException` when the count cannot be that of the file, and
    /// `MemoryResourceException` when it cannot be mapped; then nothing is until `refresh`.
    bool doResize();
    /// When nothing is mapped since a `doResize` that failed, or a page reads as zeros because it
    /// was truncated away: maps the header anew, and the next `doResize` the words. True when it
    /// did.
    bool refresh();

    /// False with a reason unless header, identity, count and file size fit together.
    bool validate(SharedMem::RavoId id, Pello::String& error) const;

    bool attached() const { return mapping_.base() != nullptr; }
    const BucketTable::Header& header() const {
        return *reinterpret_cast<const BucketTable::Header*>(mapping_.base());
    }
    /// The count as the file has it now, and as this reader has mapped it.
    Mem::VersionedRef<std::uint32_t> published() const {
        return Mem::VersionedRef<std::uint32_t>::loadFrom(header().numBuckets);
    }
    const Mem::VersionedRef<std::uint32_t>& local() const { return local_; }
    bool changed() const {
        return attached() ? local_.version != published().version : mapping_.isOpen();
    }

    std::uint32_t numBuckets() const { return local_.value; }
    std::uint32_t mask() const { return local_.value - 1; }
    /// The base-2 logarithm of the number of buckets.
    std::uint32_t order() const {
        return static_cast<std::uint32_t>(std::countr_zero(local_.value));
    }
    std::uint64_t mappedSize() const { return mapping_.size(); }

    /// Throws `CorruptionDetectedException` for an index that is not in use.
    const Vesk::SlotLink& operator[](std::uint32_t bucket) const {
        if (bucket >= local_.value) [[unlikely]]
            raiseOutOfRange(bucket);
        return words_[bucket];
    }
    [[noreturn]] void raiseOutOfRange(std::uint32_t bucket) const;

  private:
    using Count = Mem::VersionedRef<std::uint32_t>;

    /// The count and the size of the file, of one moment.
    Count snapshot(std::uint64_t& fileSize) const;

    void forgetWords();

    Mem::ReaderMapping mapping_;
    Bucket::ReaderCounters& counters_;
    const Vesk::SlotLink* words_ = nullptr;
    Count local_{Count::kNoVersion, 0};
};

} // namespace VeskCore
