#pragma once

// The writer's index from keys to slots: a split-ordered hash table (Shalev and Shavit,
// "Split-ordered lists: lock-free extensible hash tables", 2006).
//
// Who may call: the one thread of the one writer. Readers walk the same chains meanwhile.
//
// The bucket of a key is its hash modulo the number of buckets N, a power of two. A bucket word
// heads a chain of slots in ascending order of (rhash, key), rhash being the reversed hash. The
// end of a chain names the next bucket in successor order, the order of bucket indexes with their
// bits reversed, so that all chains together are one list in ascending rhash order. Doubling the
// buckets therefore splits every chain in two without moving a slot.
//
// Invariants, beside those of Vesk/SlotWords.h:
// I8   At every store each chain is sorted and reaches every entry of its bucket, for the published
//      number of buckets, and for the previous one until the first cut or the truncation. The
//      publication comes before either, so that who still uses the previous number sees another
//      version when it looks again.
// I9   Doubling: upper words filled, then the number published, then lower chains cut.
// I10  Halving: chains joined, then the number published, then the file truncated.
//
// Every loop over links is bounded by the number of slots or of buckets: a corrupt link ends in
// `CorruptionDetectedException` and changes nothing.

#include "Pello/Scheduler.h"
#include "Pello/Time.h"
#include "Vesk/Counters.h"
#include "VeskCore/BucketWriter.h"

#include <algorithm>
#include <cstdint>

namespace Vesk {

template <class Ops>
class Validator;
template <class Ops>
class VeskWriter;

} // namespace Vesk

namespace VeskCore {

/// The bucket that follows `bucket` in successor order among `numBuckets` = 2^order.
constexpr std::uint32_t successorBucket(std::uint32_t bucket, std::uint32_t order) {
    const std::uint32_t numBuckets = 1U << (order & 31U);
    if (bucket < numBuckets / 2) return bucket + numBuckets / 2;
    if (order == 0 || order > 31) return 0xFFFFFFFFU % numBuckets;
    // An increment of the reversed number, whose `order` bits are the uppermost.
    return Vesk::reverseBits(Vesk::reverseBits(bucket) + (1U << (32U - order))) % numBuckets;
}

template <class Ops>
class WriterHashMap : public Pello::Debuggable {
  public:
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;
    using Writer = Vesk::VeskWriter<Ops>;

    WriterHashMap(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                  const Mem::OruRootPath& rootPath, Mem::SharedMemWrapper::Options options,
                  Bucket::WriterCounters& counters, Writer& writer, bool shrinkBuckets)
        : Debuggable(handler)
        , buckets_(handler, rootPath, options, counters)
        , writer_(writer)
        , shrinkBuckets_(shrinkBuckets) {}

    BucketWriter<Vesk::SlotLink>& buckets() { return buckets_; }
    const BucketWriter<Vesk::SlotLink>& buckets() const { return buckets_; }

    std::uint32_t growThreshold() const { return growThreshold_; }
    std::uint32_t shrinkBucketsThreshold() const { return shrinkBucketsThreshold_; }
    bool shrinksBuckets() const { return shrinkBuckets_; }

    /// After the bucket file was attached.
    void thresholdsUpdate() {
        latest_ = {};
        growThreshold_ = buckets_.numBuckets();
        shrinkBucketsThreshold_ = buckets_.numBuckets() / 4;
    }

    /// While it lives, `first` and `next` report every slot that they pass.
    class ValidatorScope {
      public:
        ValidatorScope(WriterHashMap& map, Vesk::Validator<Ops>& validator)
            : map_(map) {
            map_.validator_ = &validator;
        }
        ~ValidatorScope() { map_.validator_ = nullptr; }
        ValidatorScope(const ValidatorScope&) = delete;
        ValidatorScope& operator=(const ValidatorScope&) = delete;

      private:
        WriterHashMap& map_;
    };

    std::uint32_t bucketOf(std::uint32_t hash) const { return hash & buckets_.mask(); }

    /// Looks for `key` in a bucket's chain. Found: `prev` is the link that leads to its slot and
    /// `curr` the slot. Absent: `prev` is the link behind which the key belongs, `curr` the first
    /// slot above it, or `prev` where the chain ends.
    bool find(const Key& key, std::uint32_t bucket, Vesk::SlotLink*& prev, Vesk::SlotLink*& curr,
              std::uint32_t hash);

    /// The address of the key's value in its slot, or null.
    const Value* lookup(const Key& key, bool& found);

    /// The first entry at or after a bucket in successor order.
    bool first(std::uint32_t bucketIndex, Value& out, Vesk::IterHint& hint);

    /// The entry after `key`, which need not be in the table. `key` may lie inside `out`.
    bool next(const Key& key, Value& out, Vesk::IterHint& hint);

    /// Throws unless `next` follows `bucket` in successor order.
    void verifyNextBucket(std::uint32_t bucket, std::uint32_t next) const;

    /// Entries are in other slots now, or the slots at another address.
    void linksMoved() { latest_ = {}; }

    /// Doubles the buckets. Keeps I8 and I9.
    void growBuckets();
    /// Halves the buckets. Keeps I8 and I10.
    void shrinkBuckets();

  private:
    /// Made of the operation's name where it is said, so that the line is that of the check.
    struct Tag : Pello::SourceTag {
        Tag(const char* theOperation, unsigned theLine = __builtin_LINE())
            : SourceTag("WriterHashMap", "VeskCore/WriterHashMap", theOperation, theLine) {}
    };

    template <class... Args>
    [[noreturn, gnu::always_inline]] static void
    raiseCorruption(const Tag& tag, fmt::format_string<const Args&...> format,
                    const Args&... args) {
        Pello::raise<Pello::CorruptionDetectedException>(tag, format, args...);
    }

    /// How a walk through one chain towards (rhash, key) ended. By value, so that it stays in
    /// registers.
    struct Walk {
        bool found;
        Vesk::SlotLink* prev; ///< the link that leads to `curr`, or the last of the chain
        Vesk::SlotLink* curr; ///< the key's slot, else the first above it, else `prev`
    };

    /// Where the latest lookup found its key. A change of the table begins with `find`, which
    /// forgets it, so that it never outlives the links that it names.
    struct Place {
        Vesk::SlotLink* prev = nullptr;
        std::uint32_t hash = 0;
    };

    /// Whether `find` may spare itself the walk of the lookup just before, as in counting: read,
    /// add, write. Not while the walk is traced.
    bool isLatest(const Key& key, std::uint32_t hash) const {
        if (latest_.prev == nullptr || latest_.hash != hash || this->traceEnabled(9)) return false;
        const std::uint32_t next = latest_.prev->next();
        if (next > slots().highestSlot()) return false;
        const Vesk::SlotWords& slot = slots().slot(next);
        return slot.occupied() && Ops::equal(slots().keyOf(slot), key);
    }

    auto& slots() const { return writer_.slotTable(); }
    std::uint32_t hashOf(const Key& key) const { return Ops::hash(key, writer_.hashSeed()); }
    std::uint32_t hashOf(const Vesk::SlotWords& slot) const { return hashOf(slots().keyOf(slot)); }

    static Vesk::SlotWords& slotOf(Vesk::SlotLink* link) {
        return *reinterpret_cast<Vesk::SlotWords*>(link);
    }

    [[gnu::always_inline]] Walk walk(const char* operation, const char* corruptKeyName,
                                     const Key& key, std::uint32_t bucket, std::uint32_t hash);

    enum class Step {
        entry,  // the hint names an entry that was copied out
        bucket, // the chain ends, `nextBucket` follows
        end,    // the table ends
        unknown // the hint is not good
    };

    /// `following` is the slot or the bucket that the step leads to, `hash` that of the slot's key.
    Step fastNext(const Key& key, const Vesk::IterHint& hint, std::uint32_t& following,
                  std::uint32_t& hash) const;
    bool slowNext(const Key& key, Value& out, Vesk::IterHint& hint);
    void checkEnd(const char* operation, std::uint32_t bucket) const;
    void checkOccupied(const char* operation, const Vesk::SlotWords& slot,
                       std::uint32_t index) const;
    /// Starts to fetch what an iteration visits some buckets after `bucket`. The order of the
    /// buckets is known without reading any, so that the fetches of several chains overlap: their
    /// words first, the first slots once the words are there, then the second slots.
    [[gnu::always_inline]] void prefetchAfter(std::uint32_t bucket) const;
    void reportToValidator(const char* operation, const Vesk::SlotWords& slot, std::uint32_t index,
                           std::uint32_t hash, bool slowPath = false);

    /// The last link of a bucket's chain before the first slot that `leaves` tells to go.
    template <class Leaves>
    Vesk::SlotLink& lastLinkOf(std::uint32_t bucket, Leaves leaves) const;

    Place latest_;
    std::uint32_t growThreshold_ = 0;
    std::uint32_t shrinkBucketsThreshold_ = 0;
    BucketWriter<Vesk::SlotLink> buckets_;
    Writer& writer_;
    bool shrinkBuckets_;
    Vesk::Validator<Ops>* validator_ = nullptr;
};

template <class Ops>
inline auto WriterHashMap<Ops>::walk(const char* operation, const char* corruptKeyName,
                                     const Key& key, std::uint32_t bucket, std::uint32_t hash)
    -> Walk {
    const auto& table = slots();
    const std::uint32_t rhash = Ops::rhash(hash);
    const std::uint32_t mask = buckets_.mask();
    const std::uint32_t capacity = table.capacity();
    Vesk::SlotLink* prev = &buckets_[bucket];
    std::uint32_t count = 0;
    for (std::uint32_t next = prev->next(); !Vesk::SlotLink::leavesChain(next);) {
        if (++count > capacity) [[unlikely]] {
            raiseCorruption(operation, "hash chain cycle detected, slotCount:{} capacity:{}", count,
                            capacity);
        }
        Vesk::SlotWords& slot = table.slot(next);
        checkOccupied(operation, slot, next);
        const Key& slotKey = table.keyOf(slot);
        const std::uint32_t slotRhash = slot.rhash();
        // The same key is in the same bucket, so that only other keys need be hashed.
        if (slotRhash == rhash && Ops::equal(slotKey, key)) return {true, prev, &slot.link};
        if ((hashOf(slotKey) & mask) != bucket) [[unlikely]] {
            raiseCorruption(operation, "corrupt key detected, {}: {}",
                            fmt::string_view(corruptKeyName), next);
        }
        if (slotRhash > rhash || (slotRhash == rhash && Ops::less(key, slotKey))) {
            return {false, prev, &slot.link};
        }
        PELLO_TRACE(*this, 9, Tag(operation), "{} next curr:{}", key, next);
        prev = &slot.link;
        next = prev->next();
    }
    return {false, prev, prev};
}

template <class Ops>
inline bool WriterHashMap<Ops>::find(const Key& key, std::uint32_t bucket, Vesk::SlotLink*& prev,
                                     Vesk::SlotLink*& curr, std::uint32_t hash) {
    if (isLatest(key, hash)) {
        prev = latest_.prev;
        curr = &slots().slot(prev->next()).link;
        latest_ = {};
        return true;
    }
    latest_ = {};
    const Walk end = walk("find", "slotId", key, bucket, hash);
    PELLO_TRACE(*this, 9, Tag("find"), "{} {}found curr:{} next:{}", key, end.found ? "" : "not ",
                Vesk::SlotLink::index(end.prev->next()), Vesk::SlotLink::index(end.curr->next()));
    prev = end.prev;
    curr = end.curr;
    return end.found;
}

template <class Ops>
inline auto WriterHashMap<Ops>::lookup(const Key& key, bool& found) -> const Value* {
    const std::uint32_t hash = hashOf(key);
    const std::uint32_t bucket = bucketOf(hash);
    const Walk end = walk("lookup", "slot", key, bucket, hash);
    found = end.found;
    if (!end.found) {
        PELLO_TRACE(*this, 8, Tag("lookup"), "{} not found bucket:{}", key, bucket);
        return nullptr;
    }
    latest_ = {end.prev, hash};
    const Vesk::SlotWords& slot = slotOf(end.curr);
    slots().lastReadIs(slot);
    PELLO_TRACE(*this, 9, Tag("lookup"), "{} found bucket:{} slotId:{}", key, bucket,
                end.prev->next());
    return &slots().valueOf(slot);
}

template <class Ops>
void WriterHashMap<Ops>::verifyNextBucket(std::uint32_t bucket, std::uint32_t next) const {
    if (next != successorBucket(bucket, buckets_.order())) [[unlikely]] {
        raiseCorruption("verifyNextBucket",
                        "has bucket: {} with next bucket: {} and numBuckets: {}", bucket, next,
                        buckets_.numBuckets());
    }
}

template <class Ops>
void WriterHashMap<Ops>::checkEnd(const char* operation, std::uint32_t bucket) const {
    if (bucket != buckets_.numBuckets() - 1) [[unlikely]] {
        raiseCorruption(operation,
                        "thinks we've reached the end of the table, but we're in bucket {} when "
                        "there are numBuckets: {}",
                        bucket, buckets_.numBuckets());
    }
}

template <class Ops>
inline void WriterHashMap<Ops>::checkOccupied(const char* operation, const Vesk::SlotWords& slot,
                                              std::uint32_t index) const {
    if (!slot.occupied()) [[unlikely]] {
        raiseCorruption(operation, "slotId: {} not marked as occupied", index);
    }
}

template <class Ops>
void WriterHashMap<Ops>::reportToValidator(const char* operation, const Vesk::SlotWords& slot,
                                           std::uint32_t index, std::uint32_t hash, bool slowPath) {
    const std::uint32_t rhash = Ops::rhash(hash);
    if (slot.rhash() != rhash) {
        if (slowPath) {
            raiseCorruption(operation,
                            "corrupt rhash detected, slotId: {} slot.rhash:{:08x} rhash:{:0x}",
                            index, slot.rhash(), rhash);
        }
        raiseCorruption(operation,
                        "corrupt rhash detected, slotId: {} slot.rhash:{:08x} rhash:{:08x}", index,
                        slot.rhash(), rhash);
    }
    validator_->markOccupied(index);
}

template <class Ops>
inline void WriterHashMap<Ops>::prefetchAfter(std::uint32_t bucket) const {
    constexpr std::uint32_t kStages = 4;  // the word, then three slots; few chains are longer
    constexpr std::uint32_t kStep = 2;    // buckets from stage to stage
    constexpr std::uint32_t kCached = 13; // order of the largest table that stays in the caches
    const std::uint32_t order = buckets_.order();
    if (order <= kCached || order > 31) return;
    const std::uint32_t position = Vesk::reverseBits(bucket);
    const auto wordOf = [&](std::uint32_t stage) -> const Vesk::SlotLink& {
        const std::uint32_t ahead = (kStages - stage) * kStep;
        return buckets_.rawWord(Vesk::reverseBits(position + (ahead << (32U - order))));
    };
    __builtin_prefetch(&wordOf(0));
#pragma GCC unroll 4
    for (std::uint32_t stage = 1; stage < kStages; ++stage) {
        std::uint32_t link = wordOf(stage).next();
        for (std::uint32_t i = 1; i < stage && link <= slots().highestSlot(); ++i) {
            link = slots().slot(link).link.next();
        }
        slots().prefetch(link);
    }
}

template <class Ops>
bool WriterHashMap<Ops>::first(std::uint32_t bucketIndex, Value& out, Vesk::IterHint& hint) {
    const auto& table = slots();
    std::uint32_t current = bucketIndex;
    std::uint32_t head = buckets_[current].next();
    prefetchAfter(current);
    for (std::uint32_t count = 0; Vesk::SlotLink::leavesChain(head);) {
        if (head == Vesk::SlotLink::kEnd) {
            checkEnd("first", current);
            PELLO_TRACE(*this, 8, Tag("first"), "none found!");
            return false;
        }
        if (++count >= buckets_.numBuckets()) [[unlikely]] {
            raiseCorruption("first", "has bucket cycle detected, bucketCount: {} numBuckets: {}",
                            count, buckets_.numBuckets());
        }
        const std::uint32_t next = Vesk::SlotLink::index(head);
        verifyNextBucket(current, next);
        head = buckets_[next].next();
        current = next;
        prefetchAfter(current);
    }
    const Vesk::SlotWords& slot = table.slot(head);
    if (!slot.occupied()) [[unlikely]] {
        raiseCorruption("first", "slotId: {} from bucket: {} not marked as occupied", head,
                        current);
    }
    slots().lastReadIs(slot);
    Ops::Marshall::fromSlot(out, slot.value());
    const std::uint32_t hash = hashOf(slot);
    if (bucketOf(hash) != current) [[unlikely]] {
        raiseCorruption("first", "corrupt key detected, slotId: {}", head);
    }
    if (validator_ != nullptr) reportToValidator("first", slot, head, hash);
    hint = {slot.sequence(), head, current};
    PELLO_TRACE(*this, 9, Tag("first"), "{} found at bucket {}", out, current);
    return true;
}

template <class Ops>
auto WriterHashMap<Ops>::fastNext(const Key& key, const Vesk::IterHint& hint,
                                  std::uint32_t& following, std::uint32_t& hash) const -> Step {
    const auto& table = slots();
    if (hint.slot >= table.capacity() || hint.slot > table.highestSlot() ||
        hint.bucket >= buckets_.numBuckets()) {
        return Step::unknown;
    }
    const Vesk::SlotWords& hinted = table.slot(hint.slot);
    // Numbers alone do not make a hint good: slots that a growth formats start at the same
    // sequence again, and every first fill ends at the same one.
    if (hinted.sequence() != hint.sequence || !hinted.occupied() ||
        !Ops::equal(table.keyOf(hinted), key)) {
        return Step::unknown;
    }
    const std::uint32_t next = hinted.link.next();
    if (next == Vesk::SlotLink::kEnd) {
        checkEnd("next", hint.bucket);
        PELLO_TRACE(*this, 8, Tag("next"), "{} failed", key);
        return Step::end;
    }
    if (Vesk::SlotLink::leavesChain(next)) {
        following = Vesk::SlotLink::index(next);
        verifyNextBucket(hint.bucket, following);
        PELLO_TRACE(*this, 9, Tag("next"), "{} next bucket {} using {}", key, following, hint);
        return Step::bucket;
    }
    const Vesk::SlotWords& slot = table.slot(next);
    checkOccupied("next", slot, next);
    // The hint's bucket is the hinted slot's, unless the buckets were resized since.
    hash = hashOf(slot);
    const std::uint32_t bucket = bucketOf(hash);
    if (bucket != hint.bucket && bucket != bucketOf(hashOf(hinted))) [[unlikely]] {
        raiseCorruption("next", "corrupt key detected, slotId: {}", next);
    }
    following = next;
    return Step::entry;
}

template <class Ops>
bool WriterHashMap<Ops>::next(const Key& keyArgument, Value& out, Vesk::IterHint& hint) {
    const Key key = keyArgument; // it may lie in `out`, or in the table
    std::uint32_t following = 0;
    std::uint32_t hash = 0;
    Step step = Step::unknown;
    try {
        step = fastNext(key, hint, following, hash);
    } catch (const Pello::CorruptionDetectedException& e) {
        PELLO_TRACE(*this, 5, Tag("next"),
                    "saw exception in fast path: {}. This might be okay, dropping to slow path to "
                    "find out",
                    e.message());
    }
    // What follows stays outside the caught region: an entry is reported to a validator once.
    switch (step) {
    case Step::unknown:
        return slowNext(key, out, hint);
    case Step::end:
        return false;
    case Step::bucket:
        return first(following, out, hint);
    case Step::entry:
        break;
    }
    const Vesk::SlotWords& slot = slots().slot(following);
    if (validator_ != nullptr) reportToValidator("next", slot, following, hash);
    slots().lastReadIs(slot);
    Ops::Marshall::fromSlot(out, slot.value());
    const Vesk::IterHint saved{slot.sequence(), following, hint.bucket};
    PELLO_TRACE(*this, 9, Tag("next"), "{} success {} using {}, saving new slot hint {}", key, out,
                hint, saved);
    hint = saved;
    return true;
}

template <class Ops>
bool WriterHashMap<Ops>::slowNext(const Key& key, Value& out, Vesk::IterHint& hint) {
    ++writer_.counters().slowNexts;
    const auto& table = slots();
    const std::uint32_t hash = hashOf(key);
    const std::uint32_t rhash = Ops::rhash(hash);
    const std::uint32_t bucket = bucketOf(hash);
    std::uint32_t link = buckets_[bucket].next();
    for (std::uint32_t count = 0; !Vesk::SlotLink::leavesChain(link);) {
        if (++count > table.capacity()) [[unlikely]] {
            raiseCorruption("next", "hash chain cycle detected, slotCount:{} capacity:{}", count,
                            table.capacity());
        }
        const Vesk::SlotWords& slot = table.slot(link);
        checkOccupied("next", slot, link);
        const Key& slotKey = table.keyOf(slot);
        const std::uint32_t slotHash = hashOf(slotKey);
        if (bucketOf(slotHash) != bucket) [[unlikely]] {
            raiseCorruption("next", "corrupt key detected, slotId: {}", link);
        }
        PELLO_TRACE(*this, 9, Tag("next"), "{} comparing slot {} {}", key, link, slotKey);
        if (slot.rhash() > rhash || (slot.rhash() == rhash && Ops::less(key, slotKey))) {
            if (validator_ != nullptr) reportToValidator("next", slot, link, slotHash, true);
            slots().lastReadIs(slot);
            Ops::Marshall::fromSlot(out, slot.value());
            hint = {slot.sequence(), link, bucket};
            PELLO_TRACE(*this, 9, Tag("next"), "{} success {}", key, out);
            return true;
        }
        const std::uint32_t following = slot.link.next();
        if (slot.rhash() == rhash && Ops::equal(slotKey, key)) {
            PELLO_TRACE(*this, 9, Tag("next"), "{} next slotId {} success {}", key, following,
                        slotKey);
        }
        link = following;
    }
    if (link == Vesk::SlotLink::kEnd) {
        checkEnd("next", bucket);
        PELLO_TRACE(*this, 8, Tag("next"), "{} failed", key);
        return false;
    }
    const std::uint32_t nextBucket = Vesk::SlotLink::index(link);
    verifyNextBucket(bucket, nextBucket);
    PELLO_TRACE(*this, 9, Tag("next"), "{} next bucket {}", key, nextBucket);
    return first(nextBucket, out, hint);
}

template <class Ops>
template <class Leaves>
Vesk::SlotLink& WriterHashMap<Ops>::lastLinkOf(std::uint32_t bucket, Leaves leaves) const {
    const auto& table = slots();
    Vesk::SlotLink* last = &buckets_.rawWord(bucket);
    std::uint32_t count = 0;
    for (std::uint32_t next = last->next(); !Vesk::SlotLink::leavesChain(next);
         next = last->next()) {
        if (++count > table.capacity()) [[unlikely]] {
            raiseCorruption("lastLinkOf", "hash chain cycle detected, slotCount:{} capacity:{}",
                            count, table.capacity());
        }
        Vesk::SlotWords& slot = table.slot(next);
        if (leaves(slot)) break;
        last = &slot.link;
    }
    return *last;
}

template <class Ops>
void WriterHashMap<Ops>::growBuckets() {
    const std::uint32_t old = buckets_.numBuckets();
    const std::uint32_t doubled = 2 * old;
    const auto bucketAfter = [this, doubled](const Vesk::SlotWords& slot) {
        return hashOf(slots().keyOf(slot)) & (doubled - 1);
    };
    const auto lastOfLower = [this, bucketAfter](std::uint32_t b) -> Vesk::SlotLink& {
        return lastLinkOf(
            b, [b, bucketAfter](const Vesk::SlotWords& slot) { return bucketAfter(slot) != b; });
    };
    PELLO_TRACE(*this, 2, Tag("growBuckets"), "growing from: {} to: {}", old, doubled);
    const double start = Pello::time();
    Pello::CriticalTaskSlices slices(writer_.criticalTaskCheck());
    buckets_.resize(doubled);
    // Split: an upper bucket starts where its slots begin in the lower chain, which still runs
    // through them; without such slots it starts as the lower chain ends.
    for (std::uint32_t b = 0; b < old; ++b) {
        buckets_.rawWord(b + old).nextIs(Mem::StopPoint::bucketSplit, lastOfLower(b).next());
        slices.maybeRun();
    }
    buckets_.publishNumBuckets(doubled);
    // Cut: a lower chain ends where the upper one begins.
    for (std::uint32_t b = 0; b < old; ++b) {
        Vesk::SlotLink& last = lastOfLower(b);
        const std::uint32_t next = last.next();
        const std::uint32_t follower =
            Vesk::SlotLink::leavesChain(next) ? b + old : bucketAfter(slots().slot(next));
        last.nextIs(Mem::StopPoint::bucketCut, Vesk::SlotLink::toBucket(follower));
        slices.maybeRun();
    }
    auto& counters = writer_.counters();
    counters.lastBucketGrowTime = Pello::time() - start;
    counters.longestBucketGrowTime =
        std::max(counters.longestBucketGrowTime, counters.lastBucketGrowTime);
    growThreshold_ = doubled;
    shrinkBucketsThreshold_ = doubled / 4;
}

template <class Ops>
void WriterHashMap<Ops>::shrinkBuckets() {
    const double start = Pello::time();
    const std::uint32_t old = buckets_.numBuckets();
    const std::uint32_t half = old / 2;
    Pello::CriticalTaskSlices slices(writer_.criticalTaskCheck());
    for (std::uint32_t b = 0; b < half; ++b) {
        lastLinkOf(b, [](const Vesk::SlotWords&) {
            return false;
        }).nextIs(Mem::StopPoint::bucketJoin, buckets_.rawWord(b + half).next());
        slices.maybeRun();
    }
    buckets_.publishNumBuckets(half);
    buckets_.resize(half);
    auto& counters = writer_.counters();
    const double elapsed = Pello::time() - start;
    counters.lastBucketShrinkTime = elapsed;
    counters.longestBucketShrinkTime = std::max(counters.longestBucketShrinkTime, elapsed);
    PELLO_TRACE(*this, 2, Tag("shrinkBuckets"), "shrunk from:{} to:{} shrinkBuckets_:{} time:{}",
                old, half, shrinkBuckets_, elapsed);
    growThreshold_ = half;
    shrinkBucketsThreshold_ = old / 8;
}

} // namespace VeskCore
