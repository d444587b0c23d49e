#pragma once

#include "Mox/Strep.h"

#include <cstdint>

namespace Rsvp {

/// Kinds of errors that the agent counts while it reads and writes messages.
enum RsvpErrorType : std::uint8_t {
    unknownErrorType = 0,
    rsvpDisabledErrorType = 1,
    mplsDisabledErrorType = 2,
    intfErrorType = 3,
    arpErrorType = 4,
    invalidPktFormatErrorType = 5,
    pktParserGenericFailureErrorType = 6,
    pktParserBadMsgChecksumErrorType = 7,
    pktParserIntegrityFailureErrorType = 8,
    pktParserSubLspEroDecompressionErrorType = 9,
    pktParserSubLspRroDecompressionErrorType = 10,
    pktGeneratorGenericFailureErrorType = 11,
    pktGeneratorAuthIndexNotSetErrorType = 12,
    pktGeneratorNoSecretForAuthIndexErrorType = 13,
    unknownNeighborErrorType = 14,
    invalidSeqNoErrorType = 15,
};

/// Registered as type 0 of the module RsvpCounters.
Mox::MoxTypeBase moxType(RsvpErrorType);

inline RsvpErrorType RsvpErrorTypeInstance(unsigned int value) {
    return Mox::enumInstance<RsvpErrorType>(value);
}
inline RsvpErrorType RsvpErrorTypeInstance(const Pello::String& name) {
    return Mox::enumInstance<RsvpErrorType>(name);
}

using Mox::operator<<;
using Mox::sequenceToValue;
using Mox::stringValue;
using Mox::valueToStrep;

} // namespace Rsvp
