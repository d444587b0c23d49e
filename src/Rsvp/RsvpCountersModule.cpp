// The module RsvpCounters: its content for the registry, and its registration.

#include "Rsvp/RsvpErrorType.h"

#include <array>

namespace Rsvp {

namespace {

constexpr std::array kErrorTypes = {
    Mox::Enumerator{unknownErrorType, "unknownErrorType"},
    Mox::Enumerator{rsvpDisabledErrorType, "rsvpDisabledErrorType"},
    Mox::Enumerator{mplsDisabledErrorType, "mplsDisabledErrorType"},
    Mox::Enumerator{intfErrorType, "intfErrorType"},
    Mox::Enumerator{arpErrorType, "arpErrorType"},
    Mox::Enumerator{invalidPktFormatErrorType, "invalidPktFormatErrorType"},
    Mox::Enumerator{pktParserGenericFailureErrorType, "pktParserGenericFailureErrorType"},
    Mox::Enumerator{pktParserBadMsgChecksumErrorType, "pktParserBadMsgChecksumErrorType"},
    Mox::Enumerator{pktParserIntegrityFailureErrorType, "pktParserIntegrityFailureErrorType"},
    Mox::Enumerator{pktParserSubLspEroDecompressionErrorType,
                    "pktParserSubLspEroDecompressionErrorType"},
    Mox::Enumerator{pktParserSubLspRroDecompressionErrorType,
                    "pktParserSubLspRroDecompressionErrorType"},
    Mox::Enumerator{pktGeneratorGenericFailureErrorType, "pktGeneratorGenericFailureErrorType"},
    Mox::Enumerator{pktGeneratorAuthIndexNotSetErrorType, "pktGeneratorAuthIndexNotSetErrorType"},
    Mox::Enumerator{pktGeneratorNoSecretForAuthIndexErrorType,
                    "pktGeneratorNoSecretForAuthIndexErrorType"},
    Mox::Enumerator{unknownNeighborErrorType, "unknownNeighborErrorType"},
    Mox::Enumerator{invalidSeqNoErrorType, "invalidSeqNoErrorType"},
};
constexpr std::array kEnumerations = {
    Mox::EnumDescriptor{0, "Rsvp::RsvpErrorType", sizeof(RsvpErrorType), kErrorTypes},
};
constexpr Mox::ModuleDescriptor kModule = {"RsvpCounters", kEnumerations};

[[maybe_unused]] const Mox::MoxTypeBase atLoad = moxType(RsvpErrorType{});

} // namespace

Mox::MoxTypeBase moxType(RsvpErrorType) {
    static const Mox::ModuleRegistration once(kModule);
    return {kModule.name, 0};
}

} // namespace Rsvp
