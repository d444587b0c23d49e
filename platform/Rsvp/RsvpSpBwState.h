#pragma once

#include "Mox/Strep.h"
#include "Rsvp/RsvpError.h"
#include "Wirra/IntfId.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Rsvp {

/// What became of a state path's request for bandwidth.
enum RsvpSpBwAdmission : std::uint8_t {
    rsvpSpUnknownBwAdmission = 0,
    rsvpSpPendingBwAdmission = 1,
    rsvpSpAdmittedBwAdmission = 2,
    rsvpSpRejectedBwAdmission = 3,
};

/// Registered as type 0 of the module RsvpBwState.
Mox::MoxTypeBase moxType(RsvpSpBwAdmission);

/// Bandwidth state of a state path. Stored bytewise in files:
///
///     offset  size  field
///          0     1  admission
///          1     3  padding, zero
///          4     8  error: why the request was rejected
///         12     4  padding, zero
///         16     8  bandwidth in bits per second
///         24     8  intfId: the interface whose bandwidth is meant
class RsvpSpBwState {
  public:
    RsvpSpBwState() = default;
    RsvpSpBwState(RsvpSpBwAdmission admission, const RsvpError& error, std::uint64_t bandwidth,
                  const Wirra::IntfId& intfId)
        : admission_(admission)
        , error_(error)
        , bandwidth_(bandwidth)
        , intfId_(intfId) {}
    explicit RsvpSpBwState(Mox::CharRange& range);

    RsvpSpBwAdmission admission() const { return admission_; }
    const RsvpError& error() const { return error_; }
    std::uint64_t bandwidth() const { return bandwidth_; }
    const Wirra::IntfId& intfId() const { return intfId_; }

    friend bool operator==(const RsvpSpBwState& left, const RsvpSpBwState& right) {
        return left.admission_ == right.admission_ && left.error_ == right.error_ &&
               left.bandwidth_ == right.bandwidth_ && left.intfId_ == right.intfId_;
    }

  private:
    static void layout() {
        static_assert(offsetof(RsvpSpBwState, admission_) == 0);
        static_assert(offsetof(RsvpSpBwState, pad1_) == 1 && sizeof(pad1_) == 3);
        static_assert(offsetof(RsvpSpBwState, error_) == 4);
        static_assert(offsetof(RsvpSpBwState, pad2_) == 12 && sizeof(pad2_) == 4);
        static_assert(offsetof(RsvpSpBwState, bandwidth_) == 16);
        static_assert(offsetof(RsvpSpBwState, intfId_) == 24);
    }

    RsvpSpBwAdmission admission_ = rsvpSpUnknownBwAdmission;
    [[maybe_unused]] std::array<std::uint8_t, 3> pad1_{};
    RsvpError error_;
    [[maybe_unused]] std::uint32_t pad2_ = 0;
    std::uint64_t bandwidth_ = 0;
    Wirra::IntfId intfId_;
};

static_assert(sizeof(RsvpSpBwState) == 32 && alignof(RsvpSpBwState) == 8);
static_assert(std::is_trivially_copyable_v<RsvpSpBwState>);
static_assert(std::has_unique_object_representations_v<RsvpSpBwState>);

Mox::String valueToStrep(const RsvpSpBwState& bwState);

using Mox::operator<<;
using Mox::sequenceToValue;
using Mox::stringValue;
using Mox::valueToStrep;

} // namespace Rsvp
