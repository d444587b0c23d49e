#pragma once

#include "Mox/Strep.h"

#include <cstdint>

namespace Rsvp {

/// Operational state of one half (PATH or RESV) of a state path.
enum RsvpSpOperState : std::uint8_t {
    rsvpSpUnknownOperState = 0,
    rsvpSpUpOperState = 1,
    rsvpSpDownOperState = 2,
};

/// Registered as type 0 of the module RsvpSpOperState.
Mox::MoxTypeBase moxType(RsvpSpOperState);

using Mox::operator<<;
using Mox::sequenceToValue;
using Mox::stringValue;
using Mox::valueToStrep;

} // namespace Rsvp
