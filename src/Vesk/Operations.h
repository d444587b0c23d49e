#pragma once

// What differs between tables, gathered in one bundle that every table class takes as its single
// template argument: how the key is taken out of a stored value, how keys are hashed, compared and
// ordered, how a value gets into a slot, which value stands for an absent key, and whether the
// writer posts change notifications.

#include "Mem/SharedWords.h"
#include "Pello/Debug.h"
#include "Vesk/SlotWords.h"

#include <cstdint>
#include <functional>
#include <new>
#include <type_traits>

namespace Vesk {

/// The key of a value is what `Retrieve` returns; no key is stored apart from its value.
template <class Key, class Value, const Key& (Value::*Retrieve)() const>
struct KeyRetrieval {
    static const Key& key(const Value& value) { return (value.*Retrieve)(); }
};

/// The key type's own hash under the seed of the table, which every process reads from the
/// table's file.
template <class Key, bool>
struct Hash {
    // Inlined, because every operation waits for it.
    [[gnu::always_inline]] static std::uint32_t hash(const Key& key, std::uint32_t seed) {
        return key.hash(seed);
    }
};

template <class Key, class Value, class Retrieval, class HashPolicy>
struct KeyOps {
    static const Key& key(const Value& value) { return Retrieval::key(value); }
    static std::uint32_t hash(const Key& key, std::uint32_t seed) {
        return HashPolicy::hash(key, seed);
    }
    static bool equal(const Key& a, const Key& b) { return a == b; }
    static bool less(const Key& a, const Key& b) { return a < b; }
};

/// Values are copied as the bytes that they are: they hold no pointers, and an optional member is
/// copied together with its presence flag. No copy constructor ever runs on shared memory, where
/// the bytes may be torn until the copy is accepted.
template <class Value>
struct Marshall {
    static_assert(std::is_standard_layout_v<Value> && std::is_trivially_destructible_v<Value>);
    static_assert(sizeof(Value) % 8 == 0 && alignof(Value) <= 8);

    static void toSlot(Mem::StopPoint point, std::byte* slotValue, const Value& value) {
        Mem::copyIn<sizeof(Value)>(point, slotValue, &value);
    }
    static void fromSlot(Value& value, const std::byte* slotValue) {
        Mem::copyOut<sizeof(Value)>(static_cast<void*>(&value), slotValue);
    }
};

/// The value (or key) that stands for an absent one: default-constructed once per process, never
/// written and never destroyed, so that its address may be handed out.
template <class T>
class [[gnu::visibility("default")]] Allocator {
  private:
    /// Room for a value that is built on first use and never destroyed.
    union Storage {
        constexpr Storage() noexcept
            : unused() {}

        unsigned char unused;
        T value;
    };

    static inline constinit Storage storage_{};

  public:
    static inline constinit const T& type_default = storage_.value;
    static inline bool type_default_initialized = false;

    /// Builds the default on the first call.
    static void initialize() {
        static const bool built = [] {
            new (&storage_.value) T();
            return type_default_initialized = true;
        }();
        static_cast<void>(built);
    }
};

template <class Key, class Value, class MarshallPolicy, class AllocatorPolicy>
struct ValueOps {
    using Marshall = MarshallPolicy;
    using Allocator = AllocatorPolicy;
};

/// A hook by which a client may fill a slot itself. The tables bind it to a check of the slot
/// index and implement nothing further.
template <class Key, class Value>
struct SlotAllocator {
    struct ClientData;
    std::function<void(ClientData*, unsigned int)> setSlotValue;
};

template <class KeyType, class ValueType, class KeyPolicy, class ValuePolicy, class SlotPolicy,
          bool Notifying, class Unused>
class Ops {
  public:
    static_assert(std::is_void_v<Unused>);

    using Key = KeyType;
    using Value = ValueType;
    using Marshall = typename ValuePolicy::Marshall;
    using SlotAllocator = SlotPolicy;
    static constexpr bool notifying = Notifying;

    Ops() = default;
    explicit Ops(std::uint32_t hashSeed)
        : hashSeed_(hashSeed) {}

    std::uint32_t hashSeed() const { return hashSeed_; }

    static const Key& key(const Value& value) { return KeyPolicy::key(value); }
    static std::uint32_t hash(const Key& key, std::uint32_t seed) {
        return KeyPolicy::hash(key, seed);
    }
    static std::uint32_t rhash(std::uint32_t hash) { return reverseBits(hash); }
    static bool equal(const Key& a, const Key& b) { return KeyPolicy::equal(a, b); }
    static bool less(const Key& a, const Key& b) { return KeyPolicy::less(a, b); }
    static const Value& defaultValue() { return ValuePolicy::Allocator::type_default; }
    static void initializeDefault() {
        Allocator<Key>::initialize();
        ValuePolicy::Allocator::initialize();
    }

  private:
    std::uint32_t hashSeed_ = 0;
};

} // namespace Vesk
