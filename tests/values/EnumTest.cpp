// Registered enumerations: names and numbers both ways, and what happens outside of them. The
// tables repeat what operators and other programs rely on.

#include "Mox/Strep.h"
#include "Rsvp/RsvpErrorType.h"
#include "Rsvp/RsvpHistoryTypes.h"
#include "Rsvp/RsvpMsgType.h"
#include "Rsvp/RsvpSpBwState.h"
#include "Rsvp/RsvpSpOperState.h"
#include "Wirra/AddressFamily.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

/// What a conversion during static initialisation sees; this file may well be initialised before
/// the modules are.
const std::string kBeforeMain =
    Rsvp::stringValue(Rsvp::invalidSeqNoErrorType) + " " + Rsvp::valueToStrep(Rsvp::rsvpHelloMsg);

template <class E>
void checkNumber(std::uint32_t number, const std::string& text) {
    const auto value = static_cast<E>(number);
    EXPECT_EQ((std::ostringstream() << value).str(), text);
    EXPECT_EQ(valueToStrep(value) + fmt::format("{}", value) + stringValue(value),
              text + text + text);
    EXPECT_EQ(Mox::enumInstance<E>(number), value);
    EXPECT_EQ(Mox::strepToValue<E>(text), value) << text;
}

/// `table` has the handle, the name of the type, and the numbers and names.
template <class E>
void check(const std::string& table) {
    const Mox::MoxTypeBase handle = moxType(E());
    const Mox::TypeDescriptor* descriptor = Mox::typeDescriptor(handle);
    ASSERT_NE(descriptor, nullptr) << table;
    EXPECT_EQ(descriptor->bytes, sizeof(E)) << table;
    auto registered = fmt::format("{} {} {}", handle.module, handle.typeNumber, descriptor->name);
    for (const auto& [number, view] : descriptor->enumerators) {
        const std::string name(view);
        registered += fmt::format(" {} {}", number, name);
        checkNumber<E>(number, name);
        EXPECT_EQ(Mox::enumInstance<E>(name), static_cast<E>(number));
        for (const std::string& wrong :
             {name + "X", name + "_", name + "0", name.substr(1), " " + name,
              name.substr(0, name.size() - 1), std::string("-1"), std::string()}) {
            EXPECT_THROW(Mox::strepToValue<E>(wrong), Mox::RangeException) << wrong;
            EXPECT_THROW(Mox::enumInstance<E>(wrong), Mox::RangeException) << wrong;
        }
    }
    EXPECT_EQ(registered, table);
    // A number without a name is kept, but must not turn into another one.
    constexpr bool isByte = sizeof(E) == 1;
    checkNumber<E>(200, "200");
    checkNumber<E>(isByte ? 255 : 4294967295U, isByte ? "255" : "4294967295");
    EXPECT_THROW(Mox::strepToValue<E>(isByte ? "256" : "4294967296"), Mox::RangeException);
}

TEST(Enum, NamesAndNumbersBothWays) {
    check<Rsvp::RsvpErrorType>(
        "RsvpCounters 0 Rsvp::RsvpErrorType 0 unknownErrorType 1 rsvpDisabledErrorType "
        "2 mplsDisabledErrorType 3 intfErrorType 4 arpErrorType 5 invalidPktFormatErrorType "
        "6 pktParserGenericFailureErrorType 7 pktParserBadMsgChecksumErrorType "
        "8 pktParserIntegrityFailureErrorType 9 pktParserSubLspEroDecompressionErrorType "
        "10 pktParserSubLspRroDecompressionErrorType 11 pktGeneratorGenericFailureErrorType "
        "12 pktGeneratorAuthIndexNotSetErrorType 13 pktGeneratorNoSecretForAuthIndexErrorType "
        "14 unknownNeighborErrorType 15 invalidSeqNoErrorType");
    check<Rsvp::RsvpSessionHistoryEntryType>(
        "RsvpHistory 0 Rsvp::RsvpSessionHistoryEntryType 0 rsvpSessionUnknownEntry "
        "1 rsvpSessionCreationHistoryEntry 2 rsvpSessionMemberHistoryEntry");
    check<Rsvp::RsvpSpHistoryEntryType>(
        "RsvpHistory 1 Rsvp::RsvpSpHistoryEntryType 0 rsvpSpUnknownEntry "
        "1 rsvpSpOperStateHistoryEntry 2 rsvpSpFrrAvailableHistoryEntry "
        "3 rsvpSpDsFrrInUseHistoryEntry 4 rsvpSpUsFrrInUseHistoryEntry 5 rsvpSpErrorHistoryEntry "
        "6 rsvpSpBwStateHistoryEntry");
    check<Rsvp::RsvpMsgType>(
        "RsvpMsg 0 Rsvp::RsvpMsgType 0 rsvpNoneMsg 1 rsvpPathMsg 2 rsvpResvMsg 3 rsvpPathErrMsg "
        "4 rsvpResvErrMsg 5 rsvpPathTearMsg 6 rsvpResvTearMsg 7 rsvpResvConfMsg 12 rsvpBundleMsg "
        "13 rsvpAckMsg 15 rsvpSrefreshMsg 20 rsvpHelloMsg");
    check<Rsvp::RsvpSpOperState>("RsvpSpOperState 0 Rsvp::RsvpSpOperState 0 rsvpSpUnknownOperState "
                                 "1 rsvpSpUpOperState 2 rsvpSpDownOperState");
    check<Rsvp::RsvpSpBwAdmission>(
        "RsvpBwState 0 Rsvp::RsvpSpBwAdmission 0 rsvpSpUnknownBwAdmission "
        "1 rsvpSpPendingBwAdmission 2 rsvpSpAdmittedBwAdmission 3 rsvpSpRejectedBwAdmission");
    check<Wirra::AddressFamily>("AddressFamily 0 Wirra::AddressFamily 0 unknownAddressFamily "
                                "1 ipv4AddressFamily 2 ipv6AddressFamily");
    EXPECT_THROW(Rsvp::RsvpErrorTypeInstance(256), Mox::RangeException);
    EXPECT_EQ(Mox::typeDescriptor({"RsvpCounters", 7}), nullptr);
    EXPECT_EQ(kBeforeMain, "invalidSeqNoErrorType rsvpHelloMsg");
}

TEST(Enum, WireNamesAreThoseOfTheElevenMessageTypes) {
    std::string found;
    for (std::uint32_t number = 0; number < 300; ++number) {
        const std::string_view name = Rsvp::wireName(static_cast<Rsvp::RsvpMsgType>(number));
        if (!name.empty()) found += fmt::format("{} {} ", number, name);
    }
    EXPECT_EQ(found, "1 PATH 2 RESV 3 PATHERR 4 RESVERR 5 PATHTEAR 6 RESVTEAR 7 RESVCONF 12 BUNDLE "
                     "13 ACK 15 SREFRESH 20 HELLO ");
}

TEST(EnumDeathTest, MisuseOfTheRegistryIsFatal) {
    EXPECT_DEATH(Mox::EnumType<unsigned char>::stringValue(0, {"NoSuchModule", 3}),
                 "no enumeration is registered as type 3 of module NoSuchModule");
    EXPECT_DEATH(Mox::EnumType<unsigned char>::stringValue(0, {"RsvpCounters", 1}),
                 "no enumeration is registered as type 1 of module RsvpCounters");
    EXPECT_DEATH(Mox::EnumType<unsigned char>::stringValue(0, {"RsvpHistory", 0}),
                 "Rsvp::RsvpSessionHistoryEntryType is registered with 4 bytes, used with 1");
    static constexpr Mox::ModuleDescriptor kOther = {"RsvpCounters", {}};
    EXPECT_DEATH(Mox::moxModuleIs(&kOther), "another module RsvpCounters is registered already");
}

} // namespace
