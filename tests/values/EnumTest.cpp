// Registered enumerations: names and numbers both ways, and what happens outside of them. The
// tables repeat what operators and other programs rely on.

#include "Rsvp/RsvpErrorType.h"
#include "Rsvp/RsvpHistoryTypes.h"
#include "Rsvp/RsvpMsgType.h"
#include "Rsvp/RsvpSpBwState.h"
#include "Rsvp/RsvpSpOperState.h"
#include "Wirra/AddressFamily.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

/// What a conversion during static initialisation sees; this file may well be initialised before
/// the modules are.
const std::string kBeforeMain = Rsvp::stringValue(Rsvp::invalidSeqNoErrorType) + " " +
                                Rsvp::valueToStrep(Rsvp::rsvpSpBwStateHistoryEntry) + " " +
                                Rsvp::valueToStrep(Rsvp::rsvpHelloMsg);

struct Conversions {
    std::function<std::string(std::uint32_t)> strep;
    std::function<std::string(std::uint32_t)> streamed;
    std::function<std::string(std::uint32_t)> string;
    std::function<std::string(std::uint32_t)> formatted;
    std::function<std::uint32_t(Mox::CharRange&)> read;
    std::function<std::uint32_t(std::uint32_t)> byNumber;
    std::function<std::uint32_t(const std::string&)> byName;
};

template <class E>
Conversions conversionsOf() {
    return {
        [](std::uint32_t number) { return valueToStrep(static_cast<E>(number)); },
        [](std::uint32_t number) {
            std::ostringstream text;
            text << static_cast<E>(number);
            return text.str();
        },
        [](std::uint32_t number) { return stringValue(static_cast<E>(number)); },
        [](std::uint32_t number) { return fmt::format("{}", static_cast<E>(number)); },
        [](Mox::CharRange& range) -> std::uint32_t {
            return sequenceToValue(range, static_cast<E*>(nullptr));
        },
        [](std::uint32_t number) -> std::uint32_t { return Mox::enumInstance<E>(number); },
        [](const std::string& name) -> std::uint32_t { return Mox::enumInstance<E>(name); },
    };
}

struct Enumeration {
    Mox::MoxTypeBase handle;
    const char* name;
    std::uint32_t bytes;
    Conversions conversions;
    std::vector<std::pair<std::uint32_t, const char*>> enumerators;
};

const std::vector<Enumeration>& enumerations() {
    static const std::vector<Enumeration> all = {
        {{"RsvpCounters", 0},
         "Rsvp::RsvpErrorType",
         1,
         conversionsOf<Rsvp::RsvpErrorType>(),
         {{0, "unknownErrorType"},
          {1, "rsvpDisabledErrorType"},
          {2, "mplsDisabledErrorType"},
          {3, "intfErrorType"},
          {4, "arpErrorType"},
          {5, "invalidPktFormatErrorType"},
          {6, "pktParserGenericFailureErrorType"},
          {7, "pktParserBadMsgChecksumErrorType"},
          {8, "pktParserIntegrityFailureErrorType"},
          {9, "pktParserSubLspEroDecompressionErrorType"},
          {10, "pktParserSubLspRroDecompressionErrorType"},
          {11, "pktGeneratorGenericFailureErrorType"},
          {12, "pktGeneratorAuthIndexNotSetErrorType"},
          {13, "pktGeneratorNoSecretForAuthIndexErrorType"},
          {14, "unknownNeighborErrorType"},
          {15, "invalidSeqNoErrorType"}}},
        {{"RsvpHistory", 0},
         "Rsvp::RsvpSessionHistoryEntryType",
         4,
         conversionsOf<Rsvp::RsvpSessionHistoryEntryType>(),
         {{0, "rsvpSessionUnknownEntry"},
          {1, "rsvpSessionCreationHistoryEntry"},
          {2, "rsvpSessionMemberHistoryEntry"}}},
        {{"RsvpHistory", 1},
         "Rsvp::RsvpSpHistoryEntryType",
         4,
         conversionsOf<Rsvp::RsvpSpHistoryEntryType>(),
         {{0, "rsvpSpUnknownEntry"},
          {1, "rsvpSpOperStateHistoryEntry"},
          {2, "rsvpSpFrrAvailableHistoryEntry"},
          {3, "rsvpSpDsFrrInUseHistoryEntry"},
          {4, "rsvpSpUsFrrInUseHistoryEntry"},
          {5, "rsvpSpErrorHistoryEntry"},
          {6, "rsvpSpBwStateHistoryEntry"}}},
        {{"RsvpMsg", 0},
         "Rsvp::RsvpMsgType",
         4,
         conversionsOf<Rsvp::RsvpMsgType>(),
         {{0, "rsvpNoneMsg"},
          {1, "rsvpPathMsg"},
          {2, "rsvpResvMsg"},
          {3, "rsvpPathErrMsg"},
          {4, "rsvpResvErrMsg"},
          {5, "rsvpPathTearMsg"},
          {6, "rsvpResvTearMsg"},
          {7, "rsvpResvConfMsg"},
          {12, "rsvpBundleMsg"},
          {13, "rsvpAckMsg"},
          {15, "rsvpSrefreshMsg"},
          {20, "rsvpHelloMsg"}}},
        {{"RsvpSpOperState", 0},
         "Rsvp::RsvpSpOperState",
         1,
         conversionsOf<Rsvp::RsvpSpOperState>(),
         {{0, "rsvpSpUnknownOperState"}, {1, "rsvpSpUpOperState"}, {2, "rsvpSpDownOperState"}}},
        {{"RsvpBwState", 0},
         "Rsvp::RsvpSpBwAdmission",
         1,
         conversionsOf<Rsvp::RsvpSpBwAdmission>(),
         {{0, "rsvpSpUnknownBwAdmission"},
          {1, "rsvpSpPendingBwAdmission"},
          {2, "rsvpSpAdmittedBwAdmission"},
          {3, "rsvpSpRejectedBwAdmission"}}},
        {{"AddressFamily", 0},
         "Wirra::AddressFamily",
         1,
         conversionsOf<Wirra::AddressFamily>(),
         {{0, "unknownAddressFamily"}, {1, "ipv4AddressFamily"}, {2, "ipv6AddressFamily"}}},
    };
    return all;
}

TEST(Enum, EveryNameAndNumberBothWays) {
    for (const Enumeration& enumeration : enumerations()) {
        for (const auto& [number, name] : enumeration.enumerators) {
            EXPECT_EQ(enumeration.conversions.strep(number), name);
            EXPECT_EQ(enumeration.conversions.streamed(number), name);
            EXPECT_EQ(enumeration.conversions.string(number), name);
            EXPECT_EQ(enumeration.conversions.formatted(number), name);
            EXPECT_EQ(enumeration.conversions.byNumber(number), number) << name;
            EXPECT_EQ(enumeration.conversions.byName(name), number) << name;
            Mox::CharRange range(name);
            EXPECT_EQ(enumeration.conversions.read(range), number) << name;
            EXPECT_TRUE(range.empty()) << name;
        }
    }
}

TEST(Enum, RegistryListsExactlyTheEnumerators) {
    for (const Enumeration& enumeration : enumerations()) {
        const Mox::EnumDescriptor* descriptor = Mox::enumDescriptor(enumeration.handle);
        ASSERT_NE(descriptor, nullptr) << enumeration.name;
        EXPECT_EQ(descriptor->name, enumeration.name);
        EXPECT_EQ(descriptor->bytes, enumeration.bytes);
        std::vector<std::pair<std::uint32_t, std::string>> found;
        for (const Mox::Enumerator& enumerator : descriptor->enumerators) {
            found.emplace_back(enumerator.number, enumerator.name);
        }
        const std::vector<std::pair<std::uint32_t, std::string>> wanted(
            enumeration.enumerators.begin(), enumeration.enumerators.end());
        EXPECT_EQ(found, wanted) << enumeration.name;
    }
    EXPECT_EQ(Mox::enumDescriptor({"RsvpCounters", 1}), nullptr);
    EXPECT_EQ(Mox::enumDescriptor({"RsvpCounter", 0}), nullptr);
}

TEST(Enum, NumbersWithoutANameAreKept) {
    for (const Enumeration& enumeration : enumerations()) {
        const std::uint32_t largest = enumeration.bytes == 1 ? 255 : 4294967295U;
        for (const std::uint32_t number : {200U, largest}) {
            EXPECT_EQ(enumeration.conversions.byNumber(number), number);
            const std::string text = enumeration.conversions.strep(number);
            EXPECT_EQ(text, std::to_string(number));
            Mox::CharRange range(text);
            EXPECT_EQ(enumeration.conversions.read(range), number) << enumeration.name;
        }
        // A number that the type cannot hold must not turn into another one.
        const std::string tooLarge = enumeration.bytes == 1 ? "256" : "4294967296";
        Mox::CharRange range(tooLarge);
        EXPECT_THROW(enumeration.conversions.read(range), Mox::RangeException) << enumeration.name;
        if (enumeration.bytes == 1) {
            EXPECT_THROW(enumeration.conversions.byNumber(256), Mox::RangeException);
        }
    }
}

TEST(Enum, OnlyWholeNamesAreTaken) {
    for (const Enumeration& enumeration : enumerations()) {
        const std::string name = enumeration.enumerators.back().second;
        for (const std::string& wrong :
             {name + "X", name + "_", name + "0", name.substr(1), name.substr(0, name.size() - 1),
              std::string(), " " + name, "Rsvp::" + name, "-" + std::string("1")}) {
            Mox::CharRange range(wrong);
            EXPECT_THROW(enumeration.conversions.read(range), Mox::RangeException) << wrong;
            EXPECT_EQ(range.consumed(), 0U) << wrong;
            EXPECT_THROW(enumeration.conversions.byName(wrong), Mox::RangeException) << wrong;
        }
        for (const char* after : {",", "}", " ", "'", "-"}) {
            const std::string text = name + after;
            Mox::CharRange range(text);
            EXPECT_EQ(enumeration.conversions.read(range), enumeration.enumerators.back().first);
            EXPECT_EQ(range.rest(), after);
        }
    }
}

TEST(Enum, InstanceFunctionsOfTheLibrarysEnumerations) {
    EXPECT_EQ(Rsvp::RsvpErrorTypeInstance(15), Rsvp::invalidSeqNoErrorType);
    EXPECT_EQ(Rsvp::RsvpErrorTypeInstance("invalidSeqNoErrorType"), Rsvp::invalidSeqNoErrorType);
    EXPECT_EQ(Rsvp::RsvpErrorTypeInstance(14), Rsvp::unknownNeighborErrorType);
    EXPECT_EQ(Rsvp::RsvpSessionHistoryEntryTypeInstance(2), Rsvp::rsvpSessionMemberHistoryEntry);
    EXPECT_EQ(Rsvp::RsvpSessionHistoryEntryTypeInstance("rsvpSessionMemberHistoryEntry"),
              Rsvp::rsvpSessionMemberHistoryEntry);
    EXPECT_EQ(Rsvp::RsvpSpHistoryEntryTypeInstance(5), Rsvp::rsvpSpErrorHistoryEntry);
    EXPECT_EQ(Rsvp::RsvpSpHistoryEntryTypeInstance("rsvpSpErrorHistoryEntry"),
              Rsvp::rsvpSpErrorHistoryEntry);
}

TEST(Enum, WireNamesAreThoseOfTheElevenMessageTypes) {
    const std::vector<std::pair<std::uint32_t, std::string>> wanted = {
        {1, "PATH"},     {2, "RESV"},      {3, "PATHERR"},  {4, "RESVERR"},
        {5, "PATHTEAR"}, {6, "RESVTEAR"},  {7, "RESVCONF"}, {12, "BUNDLE"},
        {13, "ACK"},     {15, "SREFRESH"}, {20, "HELLO"}};
    std::vector<std::pair<std::uint32_t, std::string>> found;
    for (std::uint32_t number = 0; number < 300; ++number) {
        const std::string_view name = Rsvp::wireName(static_cast<Rsvp::RsvpMsgType>(number));
        if (!name.empty()) found.emplace_back(number, name);
    }
    EXPECT_EQ(found, wanted);
}

TEST(Enum, ConversionsWorkBeforeMainAndInThreads) {
    EXPECT_EQ(kBeforeMain, "invalidSeqNoErrorType rsvpSpBwStateHistoryEntry rsvpHelloMsg");
    std::vector<std::thread> threads;
    std::vector<int> wrong(4);
    for (int& failures : wrong) {
        threads.emplace_back([&failures] {
            for (int round = 0; round < 1000; ++round) {
                for (const Enumeration& enumeration : enumerations()) {
                    const auto& [number, name] = enumeration.enumerators.back();
                    if (enumeration.conversions.strep(number) != name) ++failures;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, std::vector<int>(4));
}

TEST(EnumDeathTest, MisuseOfTheRegistryIsFatal) {
    EXPECT_DEATH(Mox::EnumType<unsigned char>::stringValue(0, {"NoSuchModule", 3}),
                 "no enumeration is registered as type 3 of module NoSuchModule");
    EXPECT_DEATH(Mox::EnumType<unsigned char>::stringValue(0, {"RsvpHistory", 0}),
                 "Rsvp::RsvpSessionHistoryEntryType is registered with 4 bytes, used with 1");
    static constexpr Mox::ModuleDescriptor kOther = {"RsvpCounters", {}};
    EXPECT_DEATH(Mox::moxModuleIs(&kOther), "another module RsvpCounters is registered already");
}

} // namespace
