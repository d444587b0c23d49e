#pragma once

// The value of the state-path history and its key. Both are stored bytewise in files.

#include "Mox/Hash.h"
#include "Mox/Strep.h"
#include "Rsvp/RsvpError.h"
#include "Rsvp/RsvpHistoryTypes.h"
#include "Rsvp/RsvpSpBwState.h"
#include "Rsvp/RsvpSpId.h"
#include "Rsvp/RsvpSpOperState.h"
#include "Wirra/IpGenAddr.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Rsvp {

/// A state path and the number of one of its entries:
///
///     offset  size  field
///          0    68  spId, whose copy leaves out what an absent sub-group's place holds
///         68     4  entryId
class RsvpSpHistoryKey {
  public:
    constexpr RsvpSpHistoryKey() = default;
    constexpr RsvpSpHistoryKey(const RsvpSpId& spId, std::uint32_t entryId)
        : spId_(spId)
        , entryId_(entryId) {}
    /// Reads the text form; `Mox::RangeException` names the attribute.
    explicit RsvpSpHistoryKey(Mox::CharRange& range);

    constexpr const RsvpSpId& spId() const { return spId_; }
    constexpr std::uint32_t entryId() const { return entryId_; }

    std::uint32_t hash(std::uint32_t seed) const {
        const std::uint32_t idHash = spId_.hash();
        Mox::Hash hash(seed);
        hash.hashMix<4>(&idHash);
        hash.hashMix<4>(&entryId_);
        return hash.result();
    }

    friend bool operator==(const RsvpSpHistoryKey& left, const RsvpSpHistoryKey& right) {
        return left.spId_ == right.spId_ && left.entryId_ == right.entryId_;
    }
    /// By state path, then by number.
    friend bool operator<(const RsvpSpHistoryKey& left, const RsvpSpHistoryKey& right) {
        if (left.spId_ == right.spId_) return left.entryId_ < right.entryId_;
        return left.spId_ < right.spId_;
    }

  private:
    static void layout() {
        static_assert(offsetof(RsvpSpHistoryKey, spId_) == 0);
        static_assert(offsetof(RsvpSpHistoryKey, entryId_) == 68);
    }

    RsvpSpId spId_;
    std::uint32_t entryId_ = 0;
};

static_assert(sizeof(RsvpSpHistoryKey) == 72 && alignof(RsvpSpHistoryKey) == 4);
static_assert(std::is_standard_layout_v<RsvpSpHistoryKey>);

/// What has happened to a state path, and the state after it:
///
///     offset  size  field
///          0    72  key
///         72     8  timestamp, a double
///         80     4  entryType
///         84     1  spOperPathState
///         85     1  spOperResvState
///         86     1  bypassAvailable: 1 when the path is protected by a bypass tunnel, else 0
///         87    17  bypassNextHop
///        104     1  bypassNodeProtected: 1 when the bypass avoids the next node, too
///        105     1  dsFrrInUse: 1 when traffic downstream is on the bypass
///        106    17  dsNextHop
///        123     1  dsNodeProtected
///        124     1  usFrrInUse: 1 when a node upstream has traffic on its bypass
///        125     3  padding, zero
///        128     8  error
///        136    32  bwState
class RsvpSpHistoryEntry {
  public:
    RsvpSpHistoryEntry() = default;
    RsvpSpHistoryEntry(const RsvpSpHistoryKey& key, const Mox::Seconds& timestamp,
                       RsvpSpHistoryEntryType entryType)
        : key_(key)
        , timestamp_(timestamp)
        , entryType_(entryType) {}
    /// Reads the text form; `Mox::RangeException` names the attribute.
    explicit RsvpSpHistoryEntry(Mox::CharRange& range);

    const RsvpSpHistoryKey& key() const { return key_; }
    const Mox::Seconds& timestamp() const { return timestamp_; }
    RsvpSpHistoryEntryType entryType() const { return entryType_; }
    RsvpSpOperState spOperPathState() const { return spOperPathState_; }
    void spOperPathStateIs(RsvpSpOperState state) & { spOperPathState_ = state; }
    RsvpSpOperState spOperResvState() const { return spOperResvState_; }
    void spOperResvStateIs(RsvpSpOperState state) & { spOperResvState_ = state; }
    bool bypassAvailable() const { return bypassAvailable_ != 0; }
    void bypassAvailableIs(bool is) & { bypassAvailable_ = is ? 1 : 0; }
    const Wirra::IpGenAddr& bypassNextHop() const { return bypassNextHop_; }
    void bypassNextHopIs(const Wirra::IpGenAddr& address) & { bypassNextHop_ = address; }
    bool bypassNodeProtected() const { return bypassNodeProtected_ != 0; }
    void bypassNodeProtectedIs(bool is) & { bypassNodeProtected_ = is ? 1 : 0; }
    bool dsFrrInUse() const { return dsFrrInUse_ != 0; }
    void dsFrrInUseIs(bool is) & { dsFrrInUse_ = is ? 1 : 0; }
    const Wirra::IpGenAddr& dsNextHop() const { return dsNextHop_; }
    void dsNextHopIs(const Wirra::IpGenAddr& address) & { dsNextHop_ = address; }
    bool dsNodeProtected() const { return dsNodeProtected_ != 0; }
    void dsNodeProtectedIs(bool is) & { dsNodeProtected_ = is ? 1 : 0; }
    bool usFrrInUse() const { return usFrrInUse_ != 0; }
    void usFrrInUseIs(bool is) & { usFrrInUse_ = is ? 1 : 0; }
    const RsvpError& error() const { return error_; }
    void errorIs(const RsvpError& error) & { error_ = error; }
    const RsvpSpBwState& bwState() const { return bwState_; }
    void bwStateIs(const RsvpSpBwState& bwState) & { bwState_ = bwState; }

    /// Whether the first entry is the older one.
    static bool timestampLesser(const RsvpSpHistoryEntry& e1, const RsvpSpHistoryEntry& e2) {
        return e1.timestamp_ < e2.timestamp_;
    }

    /// "[ path, entryId ] timestamp  entryType"
    Mox::String veskString() const;

    friend bool operator==(const RsvpSpHistoryEntry& left, const RsvpSpHistoryEntry& right) {
        return left.key_ == right.key_ && left.timestamp_ == right.timestamp_ &&
               left.entryType_ == right.entryType_ &&
               left.spOperPathState() == right.spOperPathState() &&
               left.spOperResvState() == right.spOperResvState() &&
               left.bypassAvailable() == right.bypassAvailable() &&
               left.bypassNextHop() == right.bypassNextHop() &&
               left.bypassNodeProtected() == right.bypassNodeProtected() &&
               left.dsFrrInUse() == right.dsFrrInUse() && left.dsNextHop() == right.dsNextHop() &&
               left.dsNodeProtected() == right.dsNodeProtected() &&
               left.usFrrInUse() == right.usFrrInUse() && left.error() == right.error() &&
               left.bwState() == right.bwState();
    }

  private:
    static void layout() {
        static_assert(offsetof(RsvpSpHistoryEntry, key_) == 0);
        static_assert(offsetof(RsvpSpHistoryEntry, timestamp_) == 72);
        static_assert(offsetof(RsvpSpHistoryEntry, entryType_) == 80);
        static_assert(offsetof(RsvpSpHistoryEntry, spOperPathState_) == 84);
        static_assert(offsetof(RsvpSpHistoryEntry, spOperResvState_) == 85);
        static_assert(offsetof(RsvpSpHistoryEntry, bypassAvailable_) == 86);
        static_assert(offsetof(RsvpSpHistoryEntry, bypassNextHop_) == 87);
        static_assert(offsetof(RsvpSpHistoryEntry, bypassNodeProtected_) == 104);
        static_assert(offsetof(RsvpSpHistoryEntry, dsFrrInUse_) == 105);
        static_assert(offsetof(RsvpSpHistoryEntry, dsNextHop_) == 106);
        static_assert(offsetof(RsvpSpHistoryEntry, dsNodeProtected_) == 123);
        static_assert(offsetof(RsvpSpHistoryEntry, usFrrInUse_) == 124);
        static_assert(offsetof(RsvpSpHistoryEntry, error_) == 128);
        static_assert(offsetof(RsvpSpHistoryEntry, bwState_) == 136);
        static_assert(offsetof(RsvpSpHistoryEntry, pad_) == 125 && sizeof(pad_) == 3);
    }

    RsvpSpHistoryKey key_;
    Mox::Seconds timestamp_;
    RsvpSpHistoryEntryType entryType_ = rsvpSpUnknownEntry;
    // Bytes instead of bools: a file may hold any value there.
    RsvpSpOperState spOperPathState_ = rsvpSpUnknownOperState;
    RsvpSpOperState spOperResvState_ = rsvpSpUnknownOperState;
    std::uint8_t bypassAvailable_ = 0;
    Wirra::IpGenAddr bypassNextHop_;
    std::uint8_t bypassNodeProtected_ = 0;
    std::uint8_t dsFrrInUse_ = 0;
    Wirra::IpGenAddr dsNextHop_;
    std::uint8_t dsNodeProtected_ = 0;
    std::uint8_t usFrrInUse_ = 0;
    [[maybe_unused]] std::array<std::uint8_t, 3> pad_{};
    RsvpError error_;
    RsvpSpBwState bwState_;
};

static_assert(sizeof(RsvpSpHistoryEntry) == 168 && alignof(RsvpSpHistoryEntry) == 8);
static_assert(std::is_standard_layout_v<RsvpSpHistoryEntry>);

Mox::String valueToStrep(const RsvpSpHistoryKey& key);
Mox::String valueToStrep(const RsvpSpHistoryEntry& entry);

using Mox::operator<<;
using Mox::valueToStrep;

} // namespace Rsvp
