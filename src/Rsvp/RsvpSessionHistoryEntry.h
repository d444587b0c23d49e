#pragma once

// The value of the session history and its key. Both are stored bytewise in files.

#include "Mox/Hash.h"
#include "Mox/Strep.h"
#include "Rsvp/RsvpCliId.h"
#include "Rsvp/RsvpHistoryTypes.h"
#include "Rsvp/RsvpSessionId.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Rsvp {

/// An RSVP session and the number of one of its entries:
///
///     offset  size  field
///          0    38  sessionId
///         38     2  padding, zero
///         40     4  entryId
class RsvpSessionHistoryKey {
  public:
    constexpr RsvpSessionHistoryKey() = default;
    constexpr RsvpSessionHistoryKey(const RsvpSessionId& sessionId, std::uint32_t entryId)
        : sessionId_(sessionId)
        , entryId_(entryId) {}
    /// Reads the text form; `Mox::RangeException` names the attribute.
    explicit RsvpSessionHistoryKey(Mox::CharRange& range);

    constexpr const RsvpSessionId& sessionId() const { return sessionId_; }
    constexpr std::uint32_t entryId() const { return entryId_; }

    std::uint32_t hash(std::uint32_t seed) const {
        const std::uint32_t idHash = sessionId_.hash(0);
        Mox::Hash hash(seed);
        hash.hashMix<4>(&idHash);
        hash.hashMix<4>(&entryId_);
        return hash.result();
    }

    friend bool operator==(const RsvpSessionHistoryKey& left, const RsvpSessionHistoryKey& right) {
        return left.sessionId_ == right.sessionId_ && left.entryId_ == right.entryId_;
    }
    /// By session, then by number.
    friend bool operator<(const RsvpSessionHistoryKey& left, const RsvpSessionHistoryKey& right) {
        if (left.sessionId_ == right.sessionId_) return left.entryId_ < right.entryId_;
        return left.sessionId_ < right.sessionId_;
    }

  private:
    static void layout() {
        static_assert(offsetof(RsvpSessionHistoryKey, sessionId_) == 0);
        static_assert(offsetof(RsvpSessionHistoryKey, pad_) == 38);
        static_assert(offsetof(RsvpSessionHistoryKey, entryId_) == 40);
    }

    RsvpSessionId sessionId_;
    [[maybe_unused]] std::uint16_t pad_ = 0;
    std::uint32_t entryId_ = 0;
};

static_assert(sizeof(RsvpSessionHistoryKey) == 44 && alignof(RsvpSessionHistoryKey) == 4);
static_assert(std::is_trivially_copyable_v<RsvpSessionHistoryKey>);
static_assert(std::has_unique_object_representations_v<RsvpSessionHistoryKey>);

/// What has happened to a session:
///
///     offset  size  field
///          0    44  key
///         44     4  padding, zero
///         48     8  timestamp, a double
///         56     4  entryType
///         60     4  spCliId: the state path that the entry is about
///         64     1  created: 1 when the session or the path began, 0 when it ended
///         65     7  padding, zero
class RsvpSessionHistoryEntry {
  public:
    constexpr RsvpSessionHistoryEntry() = default;
    constexpr RsvpSessionHistoryEntry(const RsvpSessionHistoryKey& key,
                                      const Mox::Seconds& timestamp,
                                      RsvpSessionHistoryEntryType entryType)
        : key_(key)
        , timestamp_(timestamp)
        , entryType_(entryType) {}
    /// Reads the text form; `Mox::RangeException` names the attribute.
    explicit RsvpSessionHistoryEntry(Mox::CharRange& range);

    constexpr const RsvpSessionHistoryKey& key() const { return key_; }
    constexpr const Mox::Seconds& timestamp() const { return timestamp_; }
    constexpr RsvpSessionHistoryEntryType entryType() const { return entryType_; }
    constexpr RsvpCliId spCliId() const { return spCliId_; }
    constexpr void spCliIdIs(RsvpCliId spCliId) & { spCliId_ = spCliId; }
    constexpr bool created() const { return created_ != 0; }
    constexpr void createdIs(bool created) & { created_ = created ? 1 : 0; }

    /// Whether the first entry is the older one.
    static constexpr bool timestampLesser(const RsvpSessionHistoryEntry& e1,
                                          const RsvpSessionHistoryEntry& e2) {
        return e1.timestamp_ < e2.timestamp_;
    }

    /// "[ session, entryId ] timestamp  entryType"
    Mox::String veskString() const;

    friend bool operator==(const RsvpSessionHistoryEntry& left,
                           const RsvpSessionHistoryEntry& right) {
        return left.key_ == right.key_ && left.timestamp_ == right.timestamp_ &&
               left.entryType_ == right.entryType_ && left.spCliId_ == right.spCliId_ &&
               left.created() == right.created();
    }

  private:
    static void layout() {
        static_assert(offsetof(RsvpSessionHistoryEntry, key_) == 0);
        static_assert(offsetof(RsvpSessionHistoryEntry, pad1_) == 44);
        static_assert(offsetof(RsvpSessionHistoryEntry, timestamp_) == 48);
        static_assert(offsetof(RsvpSessionHistoryEntry, entryType_) == 56);
        static_assert(offsetof(RsvpSessionHistoryEntry, spCliId_) == 60);
        static_assert(offsetof(RsvpSessionHistoryEntry, created_) == 64);
        static_assert(offsetof(RsvpSessionHistoryEntry, pad2_) == 65 && sizeof(pad2_) == 7);
    }

    RsvpSessionHistoryKey key_;
    [[maybe_unused]] std::uint32_t pad1_ = 0;
    Mox::Seconds timestamp_;
    RsvpSessionHistoryEntryType entryType_ = rsvpSessionUnknownEntry;
    RsvpCliId spCliId_;
    /// A byte, not a bool: a file may hold any value here.
    std::uint8_t created_ = 0;
    [[maybe_unused]] std::array<std::uint8_t, 7> pad2_{};
};

static_assert(sizeof(RsvpSessionHistoryEntry) == 72 && alignof(RsvpSessionHistoryEntry) == 8);
static_assert(std::is_trivially_copyable_v<RsvpSessionHistoryEntry>);

Mox::String valueToStrep(const RsvpSessionHistoryKey& key);
Mox::String valueToStrep(const RsvpSessionHistoryEntry& entry);

using Mox::operator<<;
using Mox::valueToStrep;

} // namespace Rsvp
