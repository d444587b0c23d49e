// Text forms: the exact texts that other programs parse, round trips, and the errors of texts that
// do not parse.

#include "Mox/Format.h"
#include "Rsvp/ErrorCounter.h"
#include "Rsvp/MessageCounter.h"
#include "Rsvp/RsvpCliId.h"
#include "Rsvp/RsvpSessionHistoryEntry.h"
#include "Rsvp/RsvpSpBwState.h"
#include "Rsvp/RsvpSpHistoryEntry.h"
#include "Rsvp/RsvpSpId.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>

namespace {

using namespace Rsvp;
using namespace Rsvp::Vesk;
using Mox::Seconds;
using Mox::strepToValue;
using Wirra::IntfId;
using Wirra::IpGenAddr;

/// The message of the error, or "" when the text parses.
template <class T>
std::string errorOf(const std::string& text) {
    try {
        strepToValue<T>(text);
    } catch (const Mox::RangeException& error) {
        return error.message();
    }
    return "";
}

/// Any change makes the text another value's or nobody's: no character of it is ignored.
template <class T>
void checkText(const std::string& text, const T& value) {
    EXPECT_EQ((std::ostringstream() << value).str(), text);
    EXPECT_EQ(fmt::format("{:>300}", value), fmt::format("{:>300}", text));
    EXPECT_EQ(strepToValue<T>(text), value) << text;
    const auto differs = [&](const std::string& damaged) {
        return errorOf<T>(damaged) != "" || !(strepToValue<T>(damaged) == value);
    };
    EXPECT_TRUE(differs(text + " "));
    for (std::size_t at = 0; at < text.size(); ++at) {
        EXPECT_TRUE(differs(text.substr(0, at))) << text << " cut at " << at;
        for (const char other : {'\0', ' ', '0', '9', 'a', '\'', '}', '.', ':', '\xFF'}) {
            std::string damaged = text;
            damaged[at] = other;
            EXPECT_TRUE(damaged == text || differs(damaged)) << damaged;
        }
    }
}

const std::string kKey = "Value('Rsvp::Vesk::MessageCounterKey', ** {'intfId': ";
const std::string kCounter = "Value('Rsvp::Vesk::MessageCounter', ** {'key': ";
const std::string kSession = "Value('Rsvp::RsvpSessionId', ** {'sessionType': 7, 'destination': ";
const std::string kSp = "Value('Rsvp::RsvpSpId', ** {'sessionId': ";

TEST(Text, ExactForms) {
    const MessageCounterKey key(IntfId(0x1F), rsvpResvTearMsg);
    checkText(kKey + "Intf(0x1f), 'mType': rsvpResvTearMsg})", key);
    checkText(kCounter + kKey + "Intf(0x1f), 'mType': rsvpResvTearMsg}), 'count': 5})",
              MessageCounter(key, 5));
    checkText("99", ErrorCounterKey(RsvpErrorTypeInstance(99)));
    checkText("Value('Rsvp::Vesk::ErrorCounter', ** {'key': arpErrorType, 'count': 4294967295})",
              ErrorCounter(ErrorCounterKey(arpErrorType), 4294967295U));
    checkText("Intf(0x0)", IntfId(0));
    checkText("Intf(0xfedcba9876543210)", IntfId(0xFEDCBA9876543210U));
    for (const char* text : {"0.0.0.0", "10.0.0.1", "255.255.255.255", "::", "::1", "2001:db8::1",
                             "::ffff:10.0.0.1", "fe80::1:0:0:2", "none"}) {
        checkText(text, strepToValue<IpGenAddr>(text));
    }
    // Bytes that no address has.
    checkText("IpGenAddr(0x0102030405000000000000000000000001)",
              IpGenAddr({1, 2, 3, 4, 5}, Wirra::ipv4AddressFamily));

    const auto four = strepToValue<IpGenAddr>("10.0.0.1");
    const RsvpSessionId session(7, four, 5, strepToValue<IpGenAddr>("2001:db8::2"));
    const P2mpSubGroupId group(four, 65535);
    const std::string sessionText =
        kSession + "10.0.0.1, 'tunnelId': 5, 'extendedTunnelId': 2001:db8::2})";
    const std::string groupText =
        "Value('Rsvp::P2mpSubGroupId', ** {'originator': 10.0.0.1, 'subGroup': 65535})";
    checkText(groupText, group);
    checkText(kSp + sessionText + ", 'lspId': 3, 'subGroupId': None})", RsvpSpId(session, 3));
    checkText(kSp + sessionText + ", 'lspId': 65536, 'subGroupId': " + groupText + "})",
              RsvpSpId(session, 65536, group));
    checkText("1000000", RsvpCliId());
    checkText("Value('Rsvp::RsvpSpBwState', ** {'admission': rsvpSpRejectedBwAdmission, 'error': "
              "Value('Rsvp::RsvpError', ** {'errorCode': 24, 'errorValue': 5}), 'bandwidth': "
              "18446744073709551615, 'intfId': Intf(0x2)})",
              RsvpSpBwState(rsvpSpRejectedBwAdmission, RsvpError(24, 5), 18446744073709551615U,
                            IntfId(2)));
    RsvpSessionHistoryEntry created({session, 4}, Seconds(12.5), rsvpSessionCreationHistoryEntry);
    created.createdIs(true);
    checkText(
        "Value('Rsvp::RsvpSessionHistoryEntry', ** {'key': Value('Rsvp::RsvpSessionHistoryKey', "
        "** {'sessionId': " +
            sessionText +
            ", 'entryId': 4}), 'timestamp': 12.5, 'entryType': "
            "rsvpSessionCreationHistoryEntry, 'spCliId': 1000000, 'created': True})",
        created);
    RsvpSpHistoryEntry path({RsvpSpId(session, 3, group), 7}, Seconds(-0.5),
                            rsvpSpDsFrrInUseHistoryEntry);
    path.spOperResvStateIs(rsvpSpUpOperState);
    path.bypassNodeProtectedIs(true);
    path.dsNextHopIs(four);
    path.errorIs(RsvpError(24, 5));
    checkText(
        "Value('Rsvp::RsvpSpHistoryEntry', ** {'key': Value('Rsvp::RsvpSpHistoryKey', ** "
        "{'spId': " +
            kSp + sessionText + ", 'lspId': 3, 'subGroupId': " + groupText +
            "}), 'entryId': 7}), 'timestamp': -0.5, 'entryType': rsvpSpDsFrrInUseHistoryEntry, "
            "'spOperPathState': rsvpSpUnknownOperState, 'spOperResvState': rsvpSpUpOperState, "
            "'bypassAvailable': False, 'bypassNextHop': none, 'bypassNodeProtected': True, "
            "'dsFrrInUse': False, 'dsNextHop': 10.0.0.1, 'dsNodeProtected': False, 'usFrrInUse': "
            "False, 'error': Value('Rsvp::RsvpError', ** {'errorCode': 24, 'errorValue': 5}), "
            "'bwState': Value('Rsvp::RsvpSpBwState', ** {'admission': rsvpSpUnknownBwAdmission, "
            "'error': Value('Rsvp::RsvpError', ** {'errorCode': 256, 'errorValue': 0}), "
            "'bandwidth': 0, 'intfId': Intf(0xffffffff)})})",
        path);
    // Compact forms, for people.
    const std::string compact = "type=7 dst=10.0.0.1 tunnel=5 ext=2001:db8::2 lsp=3";
    EXPECT_EQ(RsvpSpId(session, 3).stringValue(), compact);
    EXPECT_EQ(RsvpSpId(session, 3, group).stringValue(), compact + " subgroup=10.0.0.1/65535");
    EXPECT_EQ(MessageCounter(key, 12).veskString(), "[Intf(0x1f),rsvpResvTearMsg]12");
    EXPECT_EQ(ErrorCounter(ErrorCounterKey(arpErrorType), 4294967295U).veskString(),
              "[arpErrorType]4294967295");
}

/// Values of any bytes, mostly those at which text forms go wrong.
template <class... T>
void checkRoundTrips(T... values) {
    std::mt19937 random(31);
    const auto check = [&random](auto& value) {
        for (std::size_t at = 0; at < sizeof value; ++at) {
            const unsigned some[] = {0, 0, 0, 1, 2, 255, static_cast<unsigned>(random() % 256)};
            reinterpret_cast<unsigned char*>(&value)[at] =
                static_cast<unsigned char>(some[random() % 7]);
        }
        const std::string text = valueToStrep(value);
        const auto read = strepToValue<std::remove_reference_t<decltype(value)>>(text);
        // What is no number equals nothing.
        EXPECT_TRUE(read == value || text.find("nan") != std::string::npos) << text;
        EXPECT_EQ(valueToStrep(read), text);
    };
    for (int round = 0; round < 500; ++round) {
        (check(values), ...);
    }
}

TEST(Text, RandomValuesRoundTrip) {
    checkRoundTrips(MessageCounter(), ErrorCounter(), IpGenAddr(), RsvpSpId(), RsvpSpBwState(),
                    RsvpSessionHistoryEntry(), RsvpSpHistoryEntry());
}

TEST(Text, BoolsAndFormats) {
    EXPECT_EQ(Mox::valueToStrep(true) + Mox::valueToStrep(false), "TrueFalse");
    EXPECT_TRUE(strepToValue<bool>("True"));
    EXPECT_FALSE(strepToValue<bool>("False"));
    EXPECT_EQ(strepToValue<std::uint8_t>("255"), 255U);
    EXPECT_EQ(Mox::_fmt("plain"), "plain");
    EXPECT_EQ(Mox::_fmt("<%u|%s>", ~std::uint64_t{0}, "100 %"), "<18446744073709551615|100 %>");
    EXPECT_EQ(Mox::_fmt("%s,%s%s%u", "%u", "%s", "", std::uint8_t{65}), "%u,%s65");
}

TEST(Text, SecondsComeBackBitByBit) {
    const auto check = [](double value, const std::string& text) {
        EXPECT_EQ(valueToStrep(Seconds(value)), text);
        const double read = strepToValue<Seconds>(text).value();
        ASSERT_TRUE(std::isnan(value) ? std::isnan(read) : !std::memcmp(&read, &value, 8)) << text;
    };
    std::istringstream texts("0 -0 100 0.1 1743286400.31 1e+300 inf -inf nan 5e-324");
    for (std::string text; texts >> text;) {
        check(std::strtod(text.c_str(), nullptr), text);
    }
    check(std::strtod("-nan", nullptr), "nan");
    std::mt19937_64 random(5);
    for (int round = 0; round < 20000; ++round) {
        const double value = std::bit_cast<double>(random());
        check(value, valueToStrep(Seconds(value)));
    }
    EXPECT_EQ((std::ostringstream() << Seconds(1743286400.31)).str(), "1.74329e+09");
}

TEST(Text, ErrorsNameTheAttributesOnTheWay) {
    EXPECT_EQ(
        errorOf<MessageCounter>(kCounter + kKey + "Intf(7), 'mType': rsvpAckMsg}), 'count': 5})"),
        "while reading 'key': while reading 'intfId': wanted \"Intf(0x\" at offset 100, found "
        "\"Intf(7), 'mType': rsvpAckMsg}), 'count':\"...");
    EXPECT_EQ(errorOf<ErrorCounter>(
                  "Value('Rsvp::Vesk::ErrorCounter', ** {'key': 5, 'count': 4294967296"),
              "while reading 'count': wanted a decimal number up to 4294967295 at offset 57, found "
              "\"4294967296\"");
    EXPECT_EQ(
        errorOf<ErrorCounterKey>(""),
        "while reading 'errorType': wanted a name or number of Rsvp::RsvpErrorType at offset 0, "
        "found the end");
    EXPECT_EQ(
        errorOf<RsvpSpId>(kSp + kSession + "10.0.0.256, 'tunnelId': 5"),
        "while reading 'sessionId': while reading 'destination': wanted an IPv4 or IPv6 address "
        "or \"none\" at offset 107, found \"10.0.0.256, 'tunnelId': 5\"");
    EXPECT_EQ(errorOf<RsvpSessionHistoryEntry>(
                  "Value('Rsvp::RsvpSessionHistoryEntry', ** {'key': "
                  "Value('Rsvp::RsvpSessionHistoryKey', ** {'sessionId': None"),
              "while reading 'key': while reading 'sessionId': wanted \"Value("
              "'Rsvp::RsvpSessionId', ** {\" at offset 104, found \"None\"");
    // Between attributes, and after the last one, no attribute of this type is at fault.
    EXPECT_EQ(errorOf<MessageCounter>(kCounter + kKey + "Intf(0x7)})"),
              "while reading 'key': wanted \", 'mType': \" at offset 109, found \"})\"");
    EXPECT_EQ(errorOf<RsvpCliId>("1000000 "), "wanted the end at offset 7, found \" \"");
    EXPECT_EQ(
        errorOf<MessageCounterKey>("Value('Rsvp::MessageCounterKey', ** {'intfId': Intf(0x7)"),
        "wanted \"Value('Rsvp::Vesk::MessageCounterKey', ** {\" at offset 0, found \"Value"
        "('Rsvp::MessageCounterKey', ** {'in\"...");
}

/// Refuses each of the texts between bars.
template <class T>
void checkRefused(const std::string& texts) {
    std::istringstream in(texts);
    for (std::string text; std::getline(in, text, '|');) {
        EXPECT_NE(errorOf<T>(text), "") << text;
    }
}

TEST(Text, OnlyWhatIsWrittenIsRead) {
    checkRefused<std::uint32_t>("| 1|-1|+1|0x1|01|00|4294967296|99999999999999999999999|1.0|True");
    checkRefused<bool>("| True|true|1|Truer|True_|False0");
    checkRefused<Seconds>(
        "| 1|-|--1|+1|1e|1e999|0x1p3|.5|1.2.3|nanx|-nan|nan(1)|infinity|+inf|1,5");
    checkRefused<IntfId>("|Intf(0x)|Intf(0x01)|Intf(0xG)|Intf(0xAB)|Intf(0x1|1|intf(0x1)|"
                         "Intf(0x10000000000000000)");
    checkRefused<IpGenAddr>("| ::|10.0.0|10.0.0.1.2|10.0.0.01|1::2::3|:|nones|None|IpGenAddr(0x00)|"
                            "IpGenAddr(0x|12345::|IpGenAddr(0x010000000000000000000000000000000g)");
}

} // namespace
