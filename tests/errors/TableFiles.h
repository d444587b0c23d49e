#pragma once

// The files of a table as bytes at documented offsets, to be read and to be damaged, and what the
// table says to it.

#include "Environment.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace ErrorsTest {

/// Offsets in the slot file's header, in a slot, and in the bucket file's header.
enum HeaderWord : std::uint64_t {
    kRavoId = 16,
    kRuntime = 548,
    kOccupiedSlots = 556,
    kFreeHead = 560,
    kHighWater = 564,
    kHashSeed = 568,
    kNumSlots = 580
};
enum SlotWord : std::uint64_t {
    kNext = 4,
    kSequence = 8,
    kRhash = 12,
    kValue = 16
};
enum BucketWord : std::uint64_t {
    kBucketRavoId = 4,
    kNumBuckets = 20
};

constexpr std::uint32_t kEnd = 0xFFFFFFFFU;
constexpr std::uint32_t kBucketBit = 0x80000000U;
constexpr std::uint32_t kCritical = 0x00010000U; ///< in the word `kRuntime`

/// A table's files, which a writer may have mapped meanwhile.
class TableFiles {
  public:
    TableFiles(std::string folder, std::uint32_t valueSize);

    const std::string folder;
    const std::string slots;
    const std::string buckets;
    const std::string ravo;

    std::uint32_t header(HeaderWord at) const { return TestSupport::wordOf(slots, at); }
    void headerIs(std::uint64_t at, std::uint32_t word) { TestSupport::patchWord(slots, at, word); }
    std::uint32_t slot(std::uint32_t i, SlotWord at) const;
    void slotIs(std::uint32_t i, SlotWord at, std::uint32_t word);
    std::uint32_t bucket(std::uint32_t b) const { return TestSupport::wordOf(buckets, 28 + 8 * b); }
    void bucketIs(std::uint32_t b, std::uint32_t next) {
        TestSupport::patchWord(buckets, 28 + 8 * b, next);
    }
    std::uint32_t numBuckets() const { return TestSupport::wordOf(buckets, kNumBuckets); }
    std::uint32_t numSlots() const { return header(kNumSlots); }

    /// The slots of a sound bucket's chain, and of the free list.
    std::vector<std::uint32_t> chain(std::uint32_t b) const { return listFrom(bucket(b)); }
    std::vector<std::uint32_t> freeList() const { return listFrom(header(kFreeHead)); }
    /// A bucket but the last one, with that many slots or more; 0 asks for an empty one.
    std::uint32_t bucketWith(std::size_t length) const;
    /// A slot of another bucket than that one.
    std::uint32_t slotOutside(std::uint32_t bucket) const;
    std::vector<std::uint32_t> valueOf(std::uint32_t slot) const;
    /// Where a slot begins in the slot file.
    std::uint64_t offsetOf(std::uint32_t i) const { return 600 + std::uint64_t{1 + i} * slotSize_; }

    struct Image {
        std::vector<unsigned char> slots, buckets, ravo;
        friend bool operator==(const Image&, const Image&) = default;
    };
    Image image() const;
    /// Puts the bytes back, sizes included.
    void imageIs(const Image& image);

  private:
    std::vector<std::uint32_t> listFrom(std::uint32_t next) const;

    std::uint32_t slotSize_;
};

/// "Class Source.operation text" of a tag and a message.
std::string said(const Pello::SourceTag& tag, const std::string& text);

/// What a call raised, as `said` writes it; what it raised instead of an `E`, or "nothing".
template <class E>
std::string raisedBy(const std::function<void()>& call) {
    try {
        call();
    } catch (const E& e) {
        return said(e.tag(), e.message());
    } catch (const std::exception& e) {
        return std::string("another exception: ") + e.what();
    }
    return "nothing";
}

/// The line that a forked child wrote while it stopped itself, as `said` writes it but for the
/// line number, or how else the child ended.
std::string fatalOf(const std::function<void()>& body);

/// The captured lines as "level Class Source.operation text".
std::vector<std::string> traced(const TestSupport::TraceCapture& capture);

inline bool has(const std::vector<std::string>& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

/// Calls `onTrace` for every trace of these levels: a place where another process might act.
class TraceHook {
  public:
    TraceHook(std::uint16_t levels, std::function<void(const std::string& text)> onTrace);
    ~TraceHook();
    TraceHook(const TraceHook&) = delete;
    TraceHook& operator=(const TraceHook&) = delete;
};

} // namespace ErrorsTest
