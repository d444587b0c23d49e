#pragma once

// The bucket file of a writer.
//
//   offset  width  field
//        0      4  magic
//        4      4  ravo id
//        8      4  format version
//       12      4  flags, 0
//       16      8  {version, number of buckets}, the number a power of two
//       24    8 n  one link word per bucket

#include "Mem/Mapping.h"
#include "Mem/VersionedRef.h"
#include "Pello/Debug.h"
#include "SharedMem/RavoId.h"
#include "Vesk/Counters.h"
#include "Vesk/SlotWords.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

namespace VeskCore {

/// The part of the bucket file that readers and the writer agree on.
struct BucketTable {
    struct Header {
        static constexpr std::uint64_t kSize = 24;

        std::uint32_t magic;
        std::uint32_t ravoId;
        std::uint32_t format;
        std::uint32_t flags;
        std::uint64_t numBuckets;

        static Header& at(std::byte* base) { return *reinterpret_cast<Header*>(base); }
        /// False with a reason unless the header is one of this layout and identity, and the file
        /// large enough for that count.
        bool validate(Mem::VersionedRef<std::uint32_t> count, std::uint64_t size,
                      SharedMem::RavoId id, Pello::String& error) const;
        Pello::String toString() const;
    };

    /// Bytes of a file with that many buckets.
    static std::uint64_t fileSize(std::uint32_t buckets);
};

static_assert(sizeof(BucketTable::Header) == BucketTable::Header::kSize);

template <class Link>
class BucketWriter;

/// Maps and sizes the bucket file and keeps its header. The link words in use belong to the hash
/// map; this class writes them only when it formats the file.
template <>
class BucketWriter<Vesk::SlotLink> : public Pello::Debuggable {
  public:
    static constexpr const char* FILENAME = "buckets";

    BucketWriter(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                 const Mem::OruRootPath& rootPath, Mem::SharedMemWrapper::Options options,
                 Bucket::WriterCounters& counters);

    /// 1: a new file was made; 2: an existing one was taken over; 4: it had to be formatted anew.
    /// Throws `InvalidInitializeException` when the file cannot be mapped.
    unsigned attach(SharedMem::RavoId id);
    /// Takes the image of a bucket file into process memory and checks it.
    bool load(std::span<const std::byte> image, SharedMem::RavoId id, Pello::String& error);
    void detach();

    /// Makes room for `n` words, or truncates to them; the number in use is published apart, by
    /// `publishNumBuckets`: after growing the file, before truncating it. Throws
    /// `MemoryResourceException` and changes nothing when there is no room.
    void resize(std::uint32_t n);
    void publishNumBuckets(std::uint32_t n);

    /// False with a reason unless header, identity, number and file size fit together.
    bool validate(SharedMem::RavoId id, Pello::String& error) const;
    /// Throws `CorruptionDetectedException` when the file is no longer the one that is mapped.
    void validateFile() const;
    void cleanup() { mapping_->removeFile(); }
    void dumpToCoreIs(bool dumped) { mapping_->dumpToCoreIs(dumped); }
    std::uint64_t existingSize() const { return mapping_->existingSize(); }

    BucketTable::Header& header() const { return BucketTable::Header::at(mapping_->base()); }
    std::uint32_t numBuckets() const { return numBuckets_; }
    std::uint32_t mask() const { return numBuckets_ - 1; }
    /// The base-2 logarithm of the number of buckets.
    std::uint32_t order() const {
        return static_cast<std::uint32_t>(std::countr_zero(numBuckets_));
    }

    /// Throws `CorruptionDetectedException` for an index that is not in use.
    Vesk::SlotLink& operator[](std::uint32_t bucket) const {
        if (bucket >= numBuckets_) [[unlikely]] {
            Pello::raise<Pello::CorruptionDetectedException>(
                {"BucketWriter", "VeskCore/BucketWriter", "operator[]"},
                "out-of-range, index:{} max:{}", bucket, numBuckets_ - 1);
        }
        return words_[bucket];
    }

    /// A word of the mapped range that need not be in use yet; resizing alone may touch it.
    Vesk::SlotLink& rawWord(std::uint32_t bucket) const { return words_[bucket]; }

  private:
    bool sound(SharedMem::RavoId id, Pello::String& error) const;
    void format(SharedMem::RavoId id);
    void adopt();

    Mem::SharedMemWrapper mapping_;
    Bucket::WriterCounters& counters_;
    Vesk::SlotLink* words_ = nullptr;
    std::uint32_t numBuckets_ = 0;
};

} // namespace VeskCore
