#pragma once

#include "Mox/Hash.h"
#include "Mox/Strep.h"
#include "Orv/HashMix.h"
#include "Rsvp/P2mpSubGroupId.h"
#include "Rsvp/RsvpSessionId.h"

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Rsvp {

/// Identifies a state path, one sender of a session. Stored bytewise in files:
///
///     offset  size  field
///          0    38  sessionId
///         38     2  padding, zero
///         40     4  lspId; 65536, one beyond the 16 bits of the wire, is no LSP ID
///         44    20  subGroupId, all zero when there is none
///         64     1  1 when there is a subGroupId, else 0
///         65     3  padding, zero
///
/// What a file holds in the area of an absent sub-group is never looked at: neither comparison nor
/// hash nor copy reads it.
class RsvpSpId {
  public:
    static constexpr std::uint32_t kNoLspId = 65536;

    constexpr RsvpSpId() = default;
    constexpr RsvpSpId(const RsvpSessionId& sessionId, std::uint32_t lspId)
        : sessionId_(sessionId)
        , lspId_(lspId) {}
    constexpr RsvpSpId(const RsvpSessionId& sessionId, std::uint32_t lspId,
                       const P2mpSubGroupId& subGroupId)
        : sessionId_(sessionId)
        , lspId_(lspId)
        , subGroupId_(subGroupId)
        , engaged_(1) {}

    constexpr RsvpSpId(const RsvpSpId& other)
        : sessionId_(other.sessionId_)
        , lspId_(other.lspId_) {
        copySubGroup(other);
    }
    constexpr RsvpSpId& operator=(const RsvpSpId& other) {
        if (this == &other) return *this;
        sessionId_ = other.sessionId_;
        lspId_ = other.lspId_;
        engaged_ = 0;
        subGroupId_ = kNoSubGroup;
        copySubGroup(other);
        return *this;
    }
    ~RsvpSpId() = default;

    constexpr const RsvpSessionId& sessionId() const { return sessionId_; }
    constexpr std::uint32_t lspId() const { return lspId_; }
    /// Null when there is none.
    constexpr const P2mpSubGroupId* subGroupId() const {
        return engaged_ != 0 ? &subGroupId_ : nullptr;
    }

    /// Part of key hashes, hence of the file format.
    std::uint32_t hash() const {
        const std::uint32_t sessionHash = sessionId_.hash(0);
        const std::uint32_t lspHash = Mox::hashSingleAttr(0, lspId_);
        const std::uint32_t subGroupHash = engaged_ != 0 ? subGroupId_.hash(0) : 0;
        Orv::HashMix mix;
        mix.mixBytes4(&sessionHash);
        mix.mixBytes4(&lspHash);
        mix.mixBytes4(&subGroupHash);
        return mix;
    }

    /// "type=7 dst=10.0.0.1 tunnel=5 ext=10.0.0.2 lsp=3", then " subgroup=10.0.0.9/1" if any.
    Mox::String stringValue() const;

    friend constexpr bool operator==(const RsvpSpId& left, const RsvpSpId& right) {
        if (left.lspId_ != right.lspId_ || !(left.sessionId_ == right.sessionId_)) return false;
        if ((left.engaged_ != 0) != (right.engaged_ != 0)) return false;
        return left.engaged_ == 0 || left.subGroupId_ == right.subGroupId_;
    }
    /// By session, LSP and sub-group; no sub-group comes first.
    friend constexpr std::strong_ordering operator<=>(const RsvpSpId& left, const RsvpSpId& right) {
        if (const auto order = left.sessionId_ <=> right.sessionId_; order != 0) return order;
        if (const auto order = left.lspId_ <=> right.lspId_; order != 0) return order;
        if (const auto order = (left.engaged_ != 0) <=> (right.engaged_ != 0); order != 0) {
            return order;
        }
        if (left.engaged_ == 0) return std::strong_ordering::equal;
        return left.subGroupId_ <=> right.subGroupId_;
    }

  private:
    static constexpr P2mpSubGroupId kNoSubGroup{Wirra::IpGenAddr(), 0};

    constexpr void copySubGroup(const RsvpSpId& other) {
        if (other.engaged_ == 0) return;
        subGroupId_ = other.subGroupId_;
        engaged_ = 1;
    }

    static void layout() {
        static_assert(offsetof(RsvpSpId, sessionId_) == 0);
        static_assert(offsetof(RsvpSpId, pad1_) == 38);
        static_assert(offsetof(RsvpSpId, lspId_) == 40);
        static_assert(offsetof(RsvpSpId, subGroupId_) == 44);
        static_assert(offsetof(RsvpSpId, engaged_) == 64);
        static_assert(offsetof(RsvpSpId, pad2_) == 65 && sizeof(pad2_) == 3);
    }

    RsvpSessionId sessionId_;
    [[maybe_unused]] std::uint16_t pad1_ = 0;
    std::uint32_t lspId_ = kNoLspId;
    P2mpSubGroupId subGroupId_ = kNoSubGroup;
    /// A byte, not a bool: a file may hold any value here.
    std::uint8_t engaged_ = 0;
    [[maybe_unused]] std::array<std::uint8_t, 3> pad2_{};
};

static_assert(sizeof(RsvpSpId) == 68 && alignof(RsvpSpId) == 4);
static_assert(std::is_standard_layout_v<RsvpSpId>);

Mox::String valueToStrep(const RsvpSpId& spId);
RsvpSpId sequenceToValue(Mox::CharRange& range, RsvpSpId* selector);

using Mox::operator<<;
using Mox::sequenceToValue;
using Mox::valueToStrep;

} // namespace Rsvp
