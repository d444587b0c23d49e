#pragma once

// The words of a slot and of a bucket, and the writer's stores to them.
//
// Who may call: the accessors that publish only the table's one writer, the others anybody.
//
//   slot    0  8  link word   {state, next}
//           8  4  sequence    bit 0 OCCUPIED, bit 1 LOOKASIDE, bits 2 to 31 a rewrite count
//          12  4  rhash       the bit-reversed hash of the entry's key
//          16  n  value       the stored value, key included; n a multiple of 8
//   bucket  0  8  link word   {state, next}
//
// I1  A link word is written by one 64-bit store that raises its state by 4.
// I2  A slot's value, rhash and sequence word are complete before a link leads to it.
// I3  The value of an occupied slot changes only between two changes of its sequence word (+2 sets
//     LOOKASIDE, +2 clears it), and before the first of them the lookaside slot holds the slot's
//     rhash and the complete new value.
// I4  OCCUPIED is cleared only after the last link to the slot is gone.
//
// A crash leaves the slot as the last store left it: under LOOKASIDE the lookaside slot is
// complete, so that readers go on with the new value.

#include "Mem/SharedWords.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Vesk {

/// Where a chain (or the free list) continues, with a version that every change raises.
class alignas(8) SlotLink {
  public:
    static constexpr std::uint32_t kEnd = 0xFFFFFFFFU;       ///< end of the table or the free list
    static constexpr std::uint32_t kBucketBit = 0x80000000U; ///< the low 31 bits name a bucket
    static constexpr std::uint32_t kStateStep = 4;

    /// True when the chain of a bucket ends here: `next` names a bucket or the end of the table.
    static constexpr bool leavesChain(std::uint32_t next) { return (next & kBucketBit) != 0; }
    static constexpr std::uint32_t index(std::uint32_t next) { return next & ~kBucketBit; }
    static constexpr std::uint32_t toBucket(std::uint32_t bucket) { return bucket | kBucketBit; }

    std::uint32_t state() const { return static_cast<std::uint32_t>(Mem::load(word_)); }
    std::uint32_t next() const { return static_cast<std::uint32_t>(Mem::load(word_) >> 32U); }

    /// Both halves of one moment.
    struct Loaded {
        std::uint32_t state;
        std::uint32_t next;
    };
    Loaded loaded() const {
        const std::uint64_t word = Mem::load(word_);
        return {static_cast<std::uint32_t>(word), static_cast<std::uint32_t>(word >> 32U)};
    }

    /// Keeps I1.
    void nextIs(Mem::StopPoint point, std::uint32_t next) {
        Mem::publish(point, word_, wordOf(state() + kStateStep, next));
    }

    /// The first word of a slot that is formatted, or of the lookaside slot.
    void format(Mem::StopPoint point, std::uint32_t state, std::uint32_t next) {
        Mem::publish(point, word_, wordOf(state, next));
    }

  private:
    static constexpr std::uint64_t wordOf(std::uint32_t state, std::uint32_t next) {
        return static_cast<std::uint64_t>(next) << 32U | state;
    }

    std::uint64_t word_;
};

static_assert(sizeof(SlotLink) == 8 && std::is_trivially_copyable_v<SlotLink>);

/// The fixed part of a slot; the value follows it.
struct SlotWords {
    static constexpr std::uint32_t kOccupied = 1;
    static constexpr std::uint32_t kLookaside = 2;
    static constexpr std::uint32_t kRewriteStep = 4;

    SlotLink link;
    std::uint32_t sequenceWord;
    std::uint32_t rhashWord;

    std::uint32_t sequence() const { return Mem::load(sequenceWord); }
    std::uint32_t rhash() const { return Mem::load(rhashWord); }
    bool occupied() const { return (sequence() & kOccupied) != 0; }

    std::byte* value() { return reinterpret_cast<std::byte*>(this + 1); }
    const std::byte* value() const { return reinterpret_cast<const std::byte*>(this + 1); }

    /// Announces that the value changes from here on and stands complete in the lookaside slot.
    void beginRewrite() {
        Mem::publish(Mem::StopPoint::rewriteBegin, sequenceWord, sequence() + kLookaside);
    }
    /// Ends the rewrite that `beginRewrite` began; the slot holds an entry now.
    void endRewrite() { occupyAt(sequence() + kLookaside); }
    /// For a slot that was filled while nothing led to it.
    void occupy() { occupyAt(sequence() + kRewriteStep); }
    /// Only after the slot was unlinked (I4).
    void clearOccupied() {
        Mem::publish(Mem::StopPoint::clearOccupied, sequenceWord, sequence() & ~kOccupied);
    }

  private:
    /// Whatever a damaged file held: a free slot with LOOKASIDE set is nothing that the validator
    /// looks for.
    void occupyAt(std::uint32_t sequence) {
        Mem::publish(Mem::StopPoint::rewriteEnd, sequenceWord,
                     (sequence & ~kLookaside) | kOccupied);
    }
};

static_assert(sizeof(SlotWords) == 16);
static_assert(offsetof(SlotWords, link) == 0);
static_assert(offsetof(SlotWords, sequenceWord) == 8);
static_assert(offsetof(SlotWords, rhashWord) == 12);

/// The cursor that `first` hands to `next`. The default names no slot of any table, so that an
/// iteration that was placed by a lookup does not take the fast path by accident.
struct IterHint {
    std::uint32_t sequence = 0xFFFFFFFFU;
    std::uint32_t slot = 0xFFFFFFFFU;
    std::uint32_t bucket = 0xFFFFFFFFU;
};

/// The 32-bit reversal: bit i moves to bit 31 - i. Sorting by it keeps the keys that leave a
/// bucket when the buckets double together at the end of its chain (Shalev and Shavit,
/// "Split-ordered lists: lock-free extensible hash tables", 2006).
[[gnu::always_inline]] constexpr std::uint32_t reverseBits(std::uint32_t h) {
    h = (h >> 1U & 0x55555555U) | (h << 1U & 0xAAAAAAAAU);
    h = (h >> 2U & 0x33333333U) | (h << 2U & 0xCCCCCCCCU);
    h = (h >> 4U & 0x0F0F0F0FU) | (h << 4U & 0xF0F0F0F0U);
    return __builtin_bswap32(h);
}

} // namespace Vesk

template <>
struct fmt::formatter<Vesk::IterHint> {
    static constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }
    static auto format(const Vesk::IterHint& hint, fmt::format_context& context) {
        return fmt::format_to(context.out(), "{{sequence:{} slot:{} bucket:{}}}", hint.sequence,
                              hint.slot, hint.bucket);
    }
};
