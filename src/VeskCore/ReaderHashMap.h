#pragma once

// A reader's walks through the chains of a table that its writer changes meanwhile.
//
// Who may call: the one thread of the reader. The writer's side is VeskCore/WriterHashMap.h, with
// the invariants I8 to I10 that these walks rely on.
//
// R4  A step is taken only when the link that led to it is still the same after the slot was read;
//     else the walk begins again. A link and its version are of one load.
// R5  A key is absent only when, at the end, the number of buckets is still the one that the walk
//     was made for.
// R6  An entry may be met in the bucket of half or double the number of buckets: the writer is
//     between two stores of a resize (I8).
// R7  A slot without OCCUPIED is corruption, unless the slot that led to it has lost its own
//     OCCUPIED too: then it was moved or removed, and the walk begins again.
// R8  A hint is good only while its slot still holds the key that it was taken for: sequences and
//     versions start again with slots that a growth formats.
// R9  A walk of more steps than there are slots is a cycle only if a step does not ascend in
//     (rhash, key): a slot that is removed behind a walk and used again ahead of it lengthens an
//     honest one.
//
// What is raised here is corruption only if nothing was resized meanwhile; Vesk/VeskReader.h asks.

#include "VeskCore/BucketReader.h"
#include "VeskCore/WriterHashMap.h"

#include <cstdint>
#include <optional>
#include <span>

namespace Vesk {

template <class Ops>
class SlotReaderTable;

} // namespace Vesk

namespace VeskCore {

template <class Ops>
class ReaderHashMap : public Pello::Debuggable {
  public:
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using Slots = Vesk::SlotReaderTable<Ops>;

    ReaderHashMap(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                  const Mem::OruRootPath& rootPath, Slots& slots, const std::uint32_t& hashSeed,
                  Vesk::Reader::Counters& counters)
        : Debuggable(handler)
        , buckets_(handler, rootPath, counters.buckets)
        , slots_(slots)
        , hashSeed_(hashSeed)
        , counters_(counters) {}

    BucketReader<Vesk::SlotLink>& buckets() { return buckets_; }
    const BucketReader<Vesk::SlotLink>& buckets() const { return buckets_; }

    /// Copies the key's value into `out`; false when it is absent, with `out` undefined.
    bool lookup(const Key& key, Value& out);

    /// The first entry at or after a bucket in successor order.
    bool first(std::uint32_t bucketIndex, Value& out, Vesk::IterHint& hint);

    /// The entry after `key`, which need not be in the table and does not lie in `out`.
    bool next(const Key& key, Value& out, Vesk::IterHint& hint);

    /// Throws unless `next` follows `bucket` in successor order, for the number of buckets, its
    /// half or its double. Bucket 0 follows the last one, where the table ends.
    void verifyNextBucket(std::uint32_t bucket, std::uint32_t next) const;

  private:
    /// Made of the operation's name where it is said, so that the line is that of the check.
    struct Tag : Pello::SourceTag {
        Tag(const char* theOperation, unsigned theLine = __builtin_LINE())
            : SourceTag("ReaderHashMap", "VeskCore/ReaderHashMap", theOperation, theLine) {}
    };

    template <class... Args>
    [[noreturn, gnu::cold]] static void raiseCorruption(const Tag& tag,
                                                        fmt::format_string<const Args&...> format,
                                                        const Args&... args) {
        Pello::raise<Pello::CorruptionDetectedException>(tag, format, args...);
    }

    static Pello::String hexOf(const Key& key) {
        const auto bytes = std::as_bytes(std::span(&key, 1));
        Pello::String text;
        for (const std::byte byte : bytes) {
            text += fmt::format("{:02x}", static_cast<unsigned>(byte));
        }
        return text;
    }

    [[noreturn, gnu::cold]] void raiseNextBucket(std::uint32_t bucket, std::uint32_t next) const;
    std::uint32_t followerOf(std::uint32_t bucket, std::uint32_t link) const;

    std::uint32_t hashOf(const Key& key) const { return Ops::hash(key, hashSeed_); }
    bool isPlaced(std::uint32_t hash, std::uint32_t bucket) const {
        const std::uint32_t mask = buckets_.mask();
        return (hash & mask) == bucket || (hash & mask >> 1U) == bucket ||
               (hash & (mask << 1U | 1U)) == bucket;
    }

    /// The link by which a walk came to where it is, as it was loaded.
    struct Step {
        const Vesk::SlotLink* link;
        Vesk::SlotLink::Loaded loaded;
        const Vesk::SlotWords* slot; ///< of the link; null for a bucket's word

        Step(const Vesk::SlotLink& theLink, const Vesk::SlotWords* theSlot)
            : link(&theLink)
            , loaded(theLink.loaded())
            , slot(theSlot) {}

        bool stands() const { return link->state() == loaded.state; }
        bool leavesChain() const { return Vesk::SlotLink::leavesChain(loaded.next); }
    };

    /// How a walk towards (rhash, key) ended.
    struct End {
        enum How : std::uint8_t {
            overtaken, // a link has changed under it
            found,     // at the key's own slot
            above,     // at the first slot above the key, which `out` holds
            chainEnd
        };
        How how;
        std::uint32_t next;     ///< what ends the chain, for `chainEnd`
        std::uint32_t slot;     ///< index, for `found` and `above`
        std::uint32_t sequence; ///< of that slot
    };

    enum class Kind {
        lookup, // ends at the key
        slowNext
    };

    template <Kind kind>
    void verifyPlace(const Key& key, std::uint32_t rhash, std::uint32_t bucket) const;
    // Inlined, because what a walk finds goes through memory otherwise.
    /// Walks a bucket's chain as far as the key. Begins again for as long as links change under it.
    template <Kind kind>
    [[gnu::always_inline]] End walk(const Key& key, std::uint32_t bucket, std::uint32_t rhash,
                                    Value& out);
    template <Kind kind>
    [[gnu::always_inline]] End tryWalk(const Key& key, std::uint32_t bucket, std::uint32_t rhash,
                                       Value& out);

    void checkSize() const;
    bool fastNext(const Key& key, Value& out, Vesk::IterHint& hint, bool& result);
    bool slowNext(const Key& key, Value& out, Vesk::IterHint& hint);

    BucketReader<Vesk::SlotLink> buckets_;
    Slots& slots_;
    const std::uint32_t& hashSeed_;
    Vesk::Reader::Counters& counters_;
    Value hinted_; ///< what the slot of a hint holds
};

template <class Ops>
template <typename ReaderHashMap<Ops>::Kind kind>
inline auto ReaderHashMap<Ops>::tryWalk(const Key& key, std::uint32_t bucket, std::uint32_t rhash,
                                        Value& out) -> End {
    constexpr const char* operation = kind == Kind::lookup ? "lookup" : "next";
    Step step(buckets_[bucket], nullptr);
    std::uint32_t count = 0;
    std::optional<std::pair<std::uint32_t, Key>> before; // of the slot before, once that matters
    while (!step.leavesChain()) {
        const std::uint32_t index = step.loaded.next;
        ++count;
        const auto read = slots_.read(index, out);
        if (!step.stands()) return {End::overtaken, 0, 0, 0};
        const Key& slotKey = Ops::key(out);
        if (!read.occupied()) [[unlikely]] {
            if (step.slot != nullptr && !step.slot->occupied())
                return {End::overtaken, 0, 0, 0}; // R7
            if constexpr (kind == Kind::lookup) {
                raiseCorruption(operation, "slot:{} not marked as occupied key:{}", index,
                                hexOf(slotKey));
            } else {
                raiseCorruption(operation,
                                "slow-path slot:{} not marked as occupied key:{} slotCount:{}",
                                index, hexOf(slotKey), count);
            }
        }
        if (count >= slots_.capacity()) [[unlikely]] { // R9
            if (before && !(before->first < read.rhash ||
                            (before->first == read.rhash && Ops::less(before->second, slotKey)))) {
                raiseCorruption(operation, "hash chain cycle detected, slotCount:{} capacity:{}",
                                count, slots_.capacity());
            }
            before = {read.rhash, slotKey};
        }
        if constexpr (kind == Kind::slowNext) {
            PELLO_TRACE(*this, 9, Tag(operation), "{} comparing slot {} {}", key, index, slotKey);
        }
        const bool equal = read.rhash == rhash && Ops::equal(slotKey, key);
        const bool above =
            !equal && (read.rhash > rhash || (read.rhash == rhash && Ops::less(key, slotKey)));
        if ((equal && kind == Kind::lookup) || above) {
            if (!step.stands()) return {End::overtaken, 0, 0, 0};
            if (above) verifyPlace<kind>(slotKey, read.rhash, bucket);
            return {equal ? End::found : End::above, 0, index, read.sequence};
        }
        const Vesk::SlotWords& slot = slots_.words(index);
        const Step onward(slot.link, &slot);
        if (!step.stands()) return {End::overtaken, 0, 0, 0};
        verifyPlace<kind>(slotKey, read.rhash, bucket);
        if constexpr (kind != Kind::lookup) {
            PELLO_TRACE(*this, 9, Tag(operation), "{} next slot {} success", key,
                        onward.loaded.next);
        }
        step = onward;
    }
    return {End::chainEnd, step.loaded.next, 0, 0};
}

template <class Ops>
template <typename ReaderHashMap<Ops>::Kind kind>
inline void ReaderHashMap<Ops>::verifyPlace(const Key& key, std::uint32_t rhash,
                                            std::uint32_t bucket) const {
    const std::uint32_t hash = hashOf(key);
    if constexpr (kind == Kind::lookup) {
        if (isPlaced(hash, bucket)) [[likely]]
            return;
        raiseCorruption("lookup", "corrupt key detected. key:{} bucketIndex:{}", hexOf(key),
                        bucket);
    } else {
        // A walk that goes on from a key with another key's hash could come back to it for ever.
        if (isPlaced(hash, bucket) && Vesk::reverseBits(hash) == rhash) [[likely]]
            return;
        raiseCorruption("next", "corrupt key detected. key:{} bucketIndex {}", hexOf(key), bucket);
    }
}

template <class Ops>
template <typename ReaderHashMap<Ops>::Kind kind>
inline auto ReaderHashMap<Ops>::walk(const Key& key, std::uint32_t bucket, std::uint32_t rhash,
                                     Value& out) -> End {
    while (true) {
        const End end = tryWalk<kind>(key, bucket, rhash, out);
        if (end.how != End::overtaken) [[likely]]
            return end;
        ++counters_.retries;
    }
}

template <class Ops>
void ReaderHashMap<Ops>::checkSize() const {
    const auto published = buckets_.published();
    if (buckets_.local().version != published.version) [[unlikely]] {
        raiseCorruption("lookup", "found mismatch, local numBuckets:{} header numBuckets:{}",
                        buckets_.local(), published);
    }
}

template <class Ops>
bool ReaderHashMap<Ops>::lookup(const Key& key, Value& out) {
    if (buckets_.numBuckets() == 0) {
        PELLO_TRACE(*this, 5, Tag("lookup"), "{}", "bucket table detached");
        return false;
    }
    const std::uint32_t hash = hashOf(key);
    const End end = walk<Kind::lookup>(key, hash & buckets_.mask(), Vesk::reverseBits(hash), out);
    if (end.how == End::found) return true;
    if (end.how == End::chainEnd && end.next != Vesk::SlotLink::kEnd) {
        const std::uint32_t next = Vesk::SlotLink::index(end.next);
        if (next >= buckets_.numBuckets()) [[unlikely]]
            buckets_.raiseOutOfRange(next);
    }
    checkSize();
    return false;
}

template <class Ops>
void ReaderHashMap<Ops>::verifyNextBucket(std::uint32_t bucket, std::uint32_t next) const {
    const std::uint32_t order = buckets_.order();
    if (next == successorBucket(bucket, order)) [[likely]]
        return;
    const std::uint32_t numBuckets = buckets_.numBuckets();
    const std::uint32_t half = numBuckets / 2;
    const std::uint32_t ofHalf = order >= 2 ? successorBucket(bucket & (half - 1), order - 1)
                                            : 0xFFFFFFFFU % (half == 0 ? 1 : half);
    const std::uint32_t ofDouble =
        order < 31 ? successorBucket(bucket, order + 1) : 0xFFFFFFFFU % (numBuckets * 2U | 1U);
    if (next != ofHalf && next != ofDouble) [[unlikely]]
        raiseNextBucket(bucket, next);
}

template <class Ops>
void ReaderHashMap<Ops>::raiseNextBucket(std::uint32_t bucket, std::uint32_t next) const {
    raiseCorruption("verifyNextBucket", "has bucket: {} with next bucket: {} and numBuckets: {}",
                    bucket, next, buckets_.numBuckets());
}

/// The bucket that a link leads on to. None leads to bucket 0, where a walk begins: it would not
/// end.
template <class Ops>
std::uint32_t ReaderHashMap<Ops>::followerOf(std::uint32_t bucket, std::uint32_t link) const {
    const std::uint32_t next = Vesk::SlotLink::index(link);
    if (next == 0) [[unlikely]]
        raiseNextBucket(bucket, next);
    verifyNextBucket(bucket, next);
    return next;
}

template <class Ops>
bool ReaderHashMap<Ops>::first(std::uint32_t bucketIndex, Value& out, Vesk::IterHint& hint) {
    std::uint32_t current = bucketIndex;
    Step step(buckets_[current], nullptr);
    std::uint32_t count = 0;
    while (true) {
        while (step.leavesChain()) {
            if (step.loaded.next == Vesk::SlotLink::kEnd) {
                verifyNextBucket(current, 0);
                PELLO_TRACE(*this, 8, Tag("first"), "{}", "none found!");
                return false;
            }
            if (++count >= buckets_.numBuckets()) [[unlikely]] {
                raiseCorruption("first",
                                "has bucket cycle detected, bucketCount: {} numBuckets: {}", count,
                                buckets_.numBuckets());
            }
            current = followerOf(current, step.loaded.next);
            step = Step(buckets_[current], nullptr);
        }
        const std::uint32_t index = step.loaded.next;
        const auto read = slots_.read(index, out);
        if (!step.stands()) {
            ++counters_.retries;
            step = Step(buckets_[current], nullptr);
            continue;
        }
        if (!read.occupied()) [[unlikely]] {
            raiseCorruption("first", "slot:{} not marked as occupied key:{}", index,
                            hexOf(Ops::key(out)));
        }
        if (!isPlaced(hashOf(Ops::key(out)), current)) [[unlikely]] {
            raiseCorruption("first", "corrupt key detected, key:{} bucket:{}", hexOf(Ops::key(out)),
                            current);
        }
        hint = {read.sequence, index, current};
        PELLO_TRACE(*this, 9, Tag("first"), "{} found at bucket {}, saving {}", out, current, hint);
        return true;
    }
}

/// False when the hint is of no use; else `result` is that of `next`.
template <class Ops>
bool ReaderHashMap<Ops>::fastNext(const Key& key, Value& out, Vesk::IterHint& hint, bool& result) {
    if (hint.slot >= slots_.capacity() || hint.bucket >= buckets_.numBuckets()) return false;
    const Vesk::SlotWords& words = slots_.words(hint.slot);
    const Step step(words.link, &words);
    const auto held = slots_.read(hint.slot, hinted_);
    if (held.sequence != hint.sequence || !held.occupied() || !Ops::equal(Ops::key(hinted_), key)) {
        return false;
    }
    if (step.loaded.next == Vesk::SlotLink::kEnd) {
        verifyNextBucket(hint.bucket, 0);
        PELLO_TRACE(*this, 9, Tag("next"), "{} failed", key);
        result = false;
        return true;
    }
    if (step.leavesChain()) {
        const std::uint32_t next = followerOf(hint.bucket, step.loaded.next);
        PELLO_TRACE(*this, 9, Tag("next"), "{} next bucket {} using {}", key, next, hint);
        result = first(next, out, hint);
        return true;
    }
    const std::uint32_t index = step.loaded.next;
    const auto read = slots_.read(index, out);
    if (!step.stands()) return false;
    if (!read.occupied()) [[unlikely]] {
        if (!words.occupied()) return false; // R7
        raiseCorruption("next", "slot:{} not marked as occupied key:{}", index,
                        hexOf(Ops::key(out)));
    }
    // A step that does not ascend is corrupt or overtaken: the slow path finds out which (R9).
    if (read.rhash < held.rhash || (read.rhash == held.rhash && !Ops::less(key, Ops::key(out))))
        [[unlikely]] {
        return false;
    }
    if (!isPlaced(hashOf(Ops::key(out)), hint.bucket)) [[unlikely]] {
        raiseCorruption("next", "corrupt key detected. key:{} bucketIndex {}", hexOf(Ops::key(out)),
                        hint.bucket);
    }
    const Vesk::IterHint saved{read.sequence, index, hint.bucket};
    PELLO_TRACE(*this, 9, Tag("next"), "{} success {} using {}, saving new slot hint {}", key, out,
                hint, saved);
    hint = saved;
    result = true;
    return true;
}

template <class Ops>
bool ReaderHashMap<Ops>::slowNext(const Key& key, Value& out, Vesk::IterHint& hint) {
    ++counters_.slowNexts;
    const std::uint32_t hash = hashOf(key);
    const std::uint32_t bucket = hash & buckets_.mask();
    const End end = walk<Kind::slowNext>(key, bucket, Vesk::reverseBits(hash), out);
    if (end.how == End::above) {
        hint = {end.sequence, end.slot, bucket};
        PELLO_TRACE(*this, 9, Tag("next"), "{} success {}, saving {}", key, out, hint);
        return true;
    }
    if (end.next == Vesk::SlotLink::kEnd) {
        verifyNextBucket(bucket, 0);
        PELLO_TRACE(*this, 9, Tag("next"), "{} failed", key);
        return false;
    }
    const std::uint32_t next = followerOf(bucket, end.next);
    PELLO_TRACE(*this, 9, Tag("next"), "{} next bucket {}", key, next);
    return first(next, out, hint);
}

template <class Ops>
bool ReaderHashMap<Ops>::next(const Key& key, Value& out, Vesk::IterHint& hint) {
    if (buckets_.numBuckets() == 0) return false;
    try {
        bool result = false;
        if (fastNext(key, out, hint, result)) return result;
    } catch (const Pello::CorruptionDetectedException& e) {
        // A hint from before two resizes fails for good reasons; the slow path finds out.
        PELLO_TRACE(*this, 5, Tag("next"),
                    "saw exception in fast path: {}. This might be okay, dropping to slow path to "
                    "find out",
                    e.message());
    }
    return slowNext(key, out, hint);
}

} // namespace VeskCore
