#pragma once

// Every access to bytes that several processes share.
//
// Who may call: `publish...` and `store...` only the one writer of the bytes; `load...` anybody.
//
// S1  A word is a naturally aligned 32-bit or 64-bit integer and is read and written whole. Values
//     are multiples of 8 bytes at offsets that are multiples of 8, and are copied word by word, so
//     that a copy that overlaps with a rewrite is torn between words, never undefined.
// S2  Every store is a release and every load an acquire; the one exception are the plain stores of
//     a caller to an address that a direct operation handed out (`fullBarrier`). A reader copies a
//     value between two loads of a sequence word and accepts it when both agree:
//     - a word of the new value that the reader saw (acquire) was stored (release) after the first
//       change of the sequence word, so the second load of the sequence word sees that change;
//     - the second load of one round is the first of the next, hence it too must be an acquire;
//     - the store that announces the lookaside image (release) follows the image, and clearing a
//       slot's OCCUPIED bit follows the store that unlinked it.
//     docs/protocol.md has the argument in full.
// S3  On x86-64 all of these are plain moves; no fence is used (the thread sanitizer does not
//     understand them).
//
// The writer may read bytes that it alone stores with plain loads (`ownerView`): reads of two
// threads never race with each other.

#include "Mem/StopPoint.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__)
#if !defined(__has_feature)
#define RSVPVESK_WIDE_COPY 1
#elif !__has_feature(thread_sanitizer)
#define RSVPVESK_WIDE_COPY 1
#endif
#endif
#if defined(RSVPVESK_WIDE_COPY)
#include <emmintrin.h>
#endif

namespace Mem {

static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free);
static_assert(std::atomic_ref<std::uint64_t>::is_always_lock_free);
static_assert(std::atomic_ref<std::uint64_t>::required_alignment == sizeof(std::uint64_t));

template <class Word>
concept SharedWord = std::is_same_v<Word, std::uint32_t> || std::is_same_v<Word, std::uint64_t>;

/// An acquire load; pairs with `publish` of the same word (S2).
template <SharedWord Word>
inline Word load(const Word& word) {
    // atomic_ref of a const object comes with C++26; a load never writes.
    return std::atomic_ref<Word>(const_cast<Word&>(word)).load(std::memory_order_acquire);
}

/// A release store of a word that others look at, at a named stop point (S2).
template <SharedWord Word>
inline void publish(StopPoint point, Word& word, std::type_identity_t<Word> value) {
    stopAt(point);
    std::atomic_ref<Word>(word).store(value, std::memory_order_release);
}

/// The release store without a stop point, for words whose loss a crash cannot make visible:
/// statistics, and bytes of a file that nobody has been told about.
template <SharedWord Word>
inline void store(Word& word, std::type_identity_t<Word> value) {
    std::atomic_ref<Word>(word).store(value, std::memory_order_release);
}

#if defined(RSVPVESK_WIDE_COPY)

/// Two words by one move. The processor keeps loads in order and stores in order, and may split
/// the move between the words; the clobber keeps the compiler from moving it across its
/// neighbours. Together that is what S2 asks of two single words.
inline __m128i loadPair(const std::byte* from) {
    __m128i pair;
    asm volatile("movdqu %1, %0"
                 : "=x"(pair)
                 : "m"(*reinterpret_cast<const __m128i_u*>(from))
                 : "memory");
    return pair;
}

inline void storePair(std::byte* to, __m128i pair) {
    asm volatile("movdqu %1, %0" : "=m"(*reinterpret_cast<__m128i_u*>(to)) : "x"(pair) : "memory");
}

#endif

/// Copies `Bytes` from shared memory to private memory. What it reads may be torn between words;
/// the caller accepts it by a sequence word or holds the only right to write it.
template <std::size_t Bytes>
inline void copyOut(void* to, const void* shared) {
    static_assert(Bytes % sizeof(std::uint64_t) == 0, "values are whole words");
    const auto* from = static_cast<const std::byte*>(shared);
    auto* target = static_cast<std::byte*>(to);
    std::size_t at = 0;
#if defined(RSVPVESK_WIDE_COPY)
    for (; at + 16 <= Bytes; at += 16) {
        const __m128i pair = loadPair(from + at);
        std::memcpy(target + at, &pair, sizeof pair);
    }
#endif
    for (; at < Bytes; at += 8) {
        const std::uint64_t word = load(*reinterpret_cast<const std::uint64_t*>(from + at));
        std::memcpy(target + at, &word, sizeof word);
    }
}

/// Copies `Bytes` from private memory (or from shared memory that the caller alone writes) into
/// shared memory, each word a release.
template <std::size_t Bytes>
inline void copyIn(StopPoint point, void* shared, const void* from) {
    static_assert(Bytes % sizeof(std::uint64_t) == 0, "values are whole words");
    stopAt(point);
    auto* target = static_cast<std::byte*>(shared);
    const auto* source = static_cast<const std::byte*>(from);
    std::size_t at = 0;
#if defined(RSVPVESK_WIDE_COPY)
    for (; at + 16 <= Bytes; at += 16) {
        __m128i pair;
        std::memcpy(&pair, source + at, sizeof pair);
        storePair(target + at, pair);
    }
#endif
    for (; at < Bytes; at += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, source + at, sizeof word);
        store(*reinterpret_cast<std::uint64_t*>(target + at), word);
    }
}

/// The same for images whose size is known at run time only: headers, which are formatted while
/// no reader is bound to them. `bytes` is a multiple of 8.
inline void copyWordsIn(StopPoint point, void* shared, const void* from, std::size_t bytes) {
    stopAt(point);
    auto* target = static_cast<std::byte*>(shared);
    const auto* source = static_cast<const std::byte*>(from);
    for (std::size_t at = 0; at < bytes; at += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, source + at, sizeof word);
        store(*reinterpret_cast<std::uint64_t*>(target + at), word);
    }
}

/// The other way round, for a reader: what it reads may be of different moments.
inline void copyWordsOut(void* to, const void* shared, std::size_t bytes) {
    auto* target = static_cast<std::byte*>(to);
    const auto* from = static_cast<const std::byte*>(shared);
    for (std::size_t at = 0; at < bytes; at += 8) {
        const std::uint64_t word = load(*reinterpret_cast<const std::uint64_t*>(from + at));
        std::memcpy(target + at, &word, sizeof word);
    }
}

/// The single writer's view of a value that it alone stores: plain reads are sound for it, and
/// for nobody else.
template <class T>
inline const T& ownerView(const void* shared) {
    return *static_cast<const T*>(shared);
}

/// A word at a byte offset of a mapping.
template <SharedWord Word>
inline Word& wordAt(std::byte* base, std::size_t offset) {
    return *reinterpret_cast<Word*>(base + offset);
}

template <SharedWord Word>
inline const Word& wordAt(const std::byte* base, std::size_t offset) {
    return *reinterpret_cast<const Word*>(base + offset);
}

/// Orders every earlier store of this thread before every later one, plain stores included. Only
/// direct operations need it: they hand out an address in the mapping, and the stores that the
/// caller makes there must not become visible before the end of the previous rewrite.
inline void fullBarrier() {
#if defined(__x86_64__)
    asm volatile("lock; addl $0, -8(%%rsp)" ::: "memory", "cc");
#else
    __sync_synchronize();
#endif
}

} // namespace Mem
