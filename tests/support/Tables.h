#pragma once

// The four table shapes, with values whose content tells whether they are whole.
//
// A shape makes the value of a key number and a generation; every other byte of the value follows
// from these two, so that a value that mixes two generations, or two keys, is not `whole`. The two
// large shapes stand for the history tables: same sizes, same identifier types inside the key.

#include "Mox/Hash.h"
#include "MoxVesk/ValWrap.h"
#include "Rsvp/ErrorCounter.h"
#include "Rsvp/MessageCounter.h"
#include "Rsvp/RsvpSessionId.h"
#include "Rsvp/RsvpSpId.h"
#include "Vesk/VeskWriter.h"

#include <array>
#include <cstdint>

namespace TestSupport {

/// An identifier and an entry number, like the keys of the histories.
template <class Id>
struct StandInKey {
    Id id{};
    std::uint32_t entryId = 0;

    std::uint32_t hash(std::uint32_t seed) const {
        const std::uint32_t idHash = hashOfId();
        Mox::Hash hash(seed);
        hash.template hashMix<4>(&idHash);
        hash.template hashMix<4>(&entryId);
        return hash.result();
    }
    friend bool operator==(const StandInKey& a, const StandInKey& b) {
        return a.id == b.id && a.entryId == b.entryId;
    }
    friend bool operator<(const StandInKey& a, const StandInKey& b) {
        return a.id == b.id ? a.entryId < b.entryId : a.id < b.id;
    }

  private:
    std::uint32_t hashOfId() const {
        if constexpr (requires { id.hash(0); }) {
            return id.hash(0);
        } else {
            return id.hash();
        }
    }
};

using SessionStandInKey = StandInKey<Rsvp::RsvpSessionId>;
using SpStandInKey = StandInKey<Rsvp::RsvpSpId>;

template <class Key, std::size_t Words>
struct StandIn {
    Key theKey{};
    std::array<std::uint32_t, Words> payload{};

    const Key& key() const { return theKey; }
};

using SessionStandIn = StandIn<SessionStandInKey, 7>;
using SpStandIn = StandIn<SpStandInKey, 24>;

static_assert(sizeof(SessionStandIn) == 72 && sizeof(SpStandIn) == 168);

Rsvp::RsvpSessionId sessionIdOf(std::uint32_t number);
Rsvp::RsvpSpId spIdOf(std::uint32_t number);

/// A word that looks random and follows from its arguments.
constexpr std::uint32_t mixed(std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    std::uint32_t h = a * 0x9E3779B1U ^ b * 0x85EBCA77U ^ c * 0xC2B2AE3DU;
    h ^= h >> 15U;
    h *= 0x2C1B3C6DU;
    return h ^ h >> 13U;
}

struct ErrorShape {
    using V = Rsvp::Vesk::ErrorCounter;
    using Key = Rsvp::Vesk::ErrorCounterKey;
    using Ops = MoxVesk::TableOps<V, Key, false>;
    static constexpr const char* name = "ErrorCounter";
    static constexpr std::uint32_t minimumCapacity = 128; ///< with pages of 4096 bytes
    static constexpr std::uint32_t keys = 256;

    static Key key(std::uint32_t number) {
        return Key(static_cast<Rsvp::RsvpErrorType>(number % keys));
    }
    static V value(std::uint32_t number, std::uint32_t generation) {
        return V(key(number), generation);
    }
    static std::uint32_t generation(const V& value) { return value.count(); }
    static bool whole(const V&) { return true; } // one word
};

struct MessageShape {
    using V = Rsvp::Vesk::MessageCounter;
    using Key = Rsvp::Vesk::MessageCounterKey;
    using Ops = MoxVesk::TableOps<V, Key, true>;
    static constexpr const char* name = "MessageCounter";
    static constexpr std::uint32_t minimumCapacity = 64;
    static constexpr std::uint32_t keys = 0xFFFFFFFFU;

    static Key key(std::uint32_t number) {
        return Key(Wirra::IntfId(1 + number / 11), static_cast<Rsvp::RsvpMsgType>(number % 11));
    }
    static V value(std::uint32_t number, std::uint32_t generation) {
        return V(key(number), generation);
    }
    static std::uint32_t generation(const V& value) { return value.count(); }
    static bool whole(const V&) { return true; } // one word beside the key
};

template <class Value, class KeyType, std::uint32_t Capacity>
struct StandInShape {
    using V = Value;
    using Key = KeyType;
    using Ops = MoxVesk::TableOps<V, Key, false>;
    static constexpr std::uint32_t minimumCapacity = Capacity;
    static constexpr std::uint32_t keys = 0xFFFFFFFFU;

    static V value(std::uint32_t number, std::uint32_t generation) {
        V value;
        value.theKey = keyOf(number);
        fill(value, generation);
        return value;
    }
    static Key key(std::uint32_t number) { return keyOf(number); }
    static std::uint32_t generation(const V& value) { return value.payload[0]; }
    static bool whole(const V& value) {
        V other;
        other.theKey = value.theKey;
        fill(other, generation(value));
        return other.payload == value.payload;
    }

  private:
    static Key keyOf(std::uint32_t number);

    static void fill(V& value, std::uint32_t generation) {
        value.payload[0] = generation;
        for (std::uint32_t i = 1; i < value.payload.size(); ++i) {
            value.payload[i] = mixed(value.theKey.entryId, generation, i);
        }
    }
};

/// Four entries per identifier.
template <>
inline SessionStandInKey
StandInShape<SessionStandIn, SessionStandInKey, 32>::keyOf(std::uint32_t number) {
    return {sessionIdOf(number / 4), number};
}
template <>
inline SpStandInKey StandInShape<SpStandIn, SpStandInKey, 16>::keyOf(std::uint32_t number) {
    return {spIdOf(number / 4), number};
}

struct SessionShape : StandInShape<SessionStandIn, SessionStandInKey, 32> {
    static constexpr const char* name = "SessionStandIn";
};
struct SpShape : StandInShape<SpStandIn, SpStandInKey, 16> {
    static constexpr const char* name = "SpStandIn";
};

} // namespace TestSupport

template <class Id>
struct fmt::formatter<TestSupport::StandInKey<Id>> {
    static constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }
    static auto format(const TestSupport::StandInKey<Id>& key, fmt::format_context& context) {
        return fmt::format_to(context.out(), "key{}", key.entryId);
    }
};

template <class Value>
requires std::is_base_of_v<TestSupport::SessionStandIn, Value> ||
    std::is_base_of_v<TestSupport::SpStandIn, Value>
struct fmt::formatter<Value> {
    static constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }
    static auto format(const Value& value, fmt::format_context& context) {
        return fmt::format_to(context.out(), "value{}#{}", value.theKey.entryId, value.payload[0]);
    }
};
