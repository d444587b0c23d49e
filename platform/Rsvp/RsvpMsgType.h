#pragma once

#include "Mox/Strep.h"

#include <cstdint>
#include <string_view>

namespace Rsvp {

/// RSVP message types by their numbers on the wire (RFC 2205, RFC 2961, RFC 3209). 0 is no type.
enum RsvpMsgType : std::uint32_t {
    rsvpNoneMsg = 0,
    rsvpPathMsg = 1,
    rsvpResvMsg = 2,
    rsvpPathErrMsg = 3,
    rsvpResvErrMsg = 4,
    rsvpPathTearMsg = 5,
    rsvpResvTearMsg = 6,
    rsvpResvConfMsg = 7,
    rsvpBundleMsg = 12,
    rsvpAckMsg = 13,
    rsvpSrefreshMsg = 15,
    rsvpHelloMsg = 20,
};

/// Registered as type 0 of the module RsvpMsg.
Mox::MoxTypeBase moxType(RsvpMsgType);

/// The name that the protocol's documents use, such as "PATHERR"; empty for a number that is not a
/// message type.
std::string_view wireName(RsvpMsgType type);

using Mox::operator<<;
using Mox::sequenceToValue;
using Mox::stringValue;
using Mox::valueToStrep;

} // namespace Rsvp
