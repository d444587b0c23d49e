// Text that does not parse: always `RangeException`, which leads to the attribute at fault.

#include "ValueSupport.h"

#include "Rsvp/ErrorCounter.h"
#include "Rsvp/MessageCounter.h"
#include "Rsvp/RsvpCliId.h"
#include "Rsvp/RsvpSpOperState.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using Mox::RangeException;
using Rsvp::Vesk::ErrorCounter;
using Rsvp::Vesk::ErrorCounterKey;
using Rsvp::Vesk::MessageCounter;
using Rsvp::Vesk::MessageCounterKey;

/// The message of the error, or "" when the text parses.
template <class T>
std::string errorOf(const std::string& text) {
    try {
        Mox::strepToValue<T>(text);
    } catch (const RangeException& error) {
        return error.message();
    }
    return "";
}

struct Case {
    std::string message;
    std::function<std::string(const std::string&)> errorOf;
    std::string text;
};

const std::string kKeyStart = "Value('Rsvp::Vesk::MessageCounterKey', ** {'intfId': ";
const std::string kStart = "Value('Rsvp::Vesk::MessageCounter', ** {'key': ";
const std::string kSession = "Value('Rsvp::RsvpSessionId', ** {'sessionType': 7, 'destination': ";

TEST(ParseError, NamesTheAttributesOnTheWay) {
    const std::vector<Case> cases = {
        {"while reading 'key': while reading 'intfId': wanted \"Intf(0x\" at offset 100, found "
         "\"Intf(7), 'mType': rsvpAckMsg}), 'count':\"...",
         errorOf<MessageCounter>,
         kStart + kKeyStart + "Intf(7), 'mType': rsvpAckMsg}), 'count': 5})"},
        {"while reading 'key': while reading 'mType': wanted a name or number of "
         "Rsvp::RsvpMsgType at offset 120, found \"rsvpAckMsgs}), 'count': 5})\"",
         errorOf<MessageCounter>,
         kStart + kKeyStart + "Intf(0x7), 'mType': rsvpAckMsgs}), 'count': 5})"},
        {"while reading 'count': wanted a decimal number up to 4294967295 at offset 143, found "
         "\"4294967296})\"",
         errorOf<MessageCounter>,
         kStart + kKeyStart + "Intf(0x7), 'mType': rsvpAckMsg}), 'count': 4294967296})"},
        {"while reading 'key': while reading 'errorType': wanted a name or number of "
         "Rsvp::RsvpErrorType at offset 45, found \"noErrorType, 'count': 5})\"",
         errorOf<ErrorCounter>,
         "Value('Rsvp::Vesk::ErrorCounter', ** {'key': noErrorType, 'count': 5})"},
        {"while reading 'errorType': wanted a name or number of Rsvp::RsvpErrorType at offset 0, "
         "found the end",
         errorOf<ErrorCounterKey>, ""},
        {"while reading 'destination': wanted an IPv4 or IPv6 address or \"none\" at offset 66, "
         "found \"10.0.0.256, 'tunnelId': 5\"",
         errorOf<Rsvp::RsvpSessionId>, kSession + "10.0.0.256, 'tunnelId': 5"},
        {"while reading 'sessionId': while reading 'tunnelId': wanted a decimal number up to "
         "65535 at offset 123, found \"65536\"",
         errorOf<Rsvp::RsvpSpId>,
         "Value('Rsvp::RsvpSpId', ** {'sessionId': " + kSession + "::, 'tunnelId': 65536"},
        // Between attributes, and after the last one, no attribute of this type is at fault.
        {"while reading 'key': wanted \", 'mType': \" at offset 109, found \"})\"",
         errorOf<MessageCounter>, kStart + kKeyStart + "Intf(0x7)})"},
        {"wanted the end at offset 7, found \" \"", errorOf<Rsvp::RsvpCliId>, "1000000 "},
        {"wanted \"Value('Rsvp::Vesk::MessageCounterKey', ** {\" at offset 0, found \"Value"
         "('Rsvp::MessageCounterKey', ** {'in\"...",
         errorOf<MessageCounterKey>, "Value('Rsvp::MessageCounterKey', ** {'intfId': Intf(0x7)"},
    };
    for (const Case& parse : cases) {
        EXPECT_EQ(parse.errorOf(parse.text), parse.message) << parse.text;
    }
}

TEST(ParseError, TheChainEndsWithTheAttributeOfSingleAttributeTypes) {
    EXPECT_TRUE(errorOf<Rsvp::RsvpCliId>("x").starts_with("while reading 'value': wanted a "));
    Mox::CharRange range("4");
    EXPECT_EQ(Mox::deserializeAttr<Rsvp::RsvpSpOperState>(range, "spOperPathState"), 4);
    Mox::CharRange wrong("spUp");
    try {
        Mox::deserializeAttr<Rsvp::RsvpSpOperState>(wrong, "spOperPathState");
        FAIL() << "an unknown name parsed";
    } catch (const RangeException& error) {
        EXPECT_TRUE(error.message().starts_with("while reading 'spOperPathState': "));
    }
}

TEST(ParseError, OnlyTheTextThatIsWrittenIsRead) {
    for (const char* text : {"", "-1", "+1", " 1", "1 ", "0x1", "01", "00", "4294967296",
                             "99999999999999999999999", "1.0", "True"}) {
        EXPECT_NE(errorOf<std::uint32_t>(text), "") << text;
    }
    for (const char* text : {"", "true", "1", "Truer", "True_", "False0", " True"}) {
        EXPECT_NE(errorOf<bool>(text), "") << text;
    }
    for (const char* text : {"", "-", "--1", "+1", "1e", "1e999", "0x1p3", ".5", "1.2.3", "nanx",
                             "-nan", "nan(1)", "infinity", "+inf", "1,5", " 1"}) {
        EXPECT_NE(errorOf<Mox::Seconds>(text), "") << text;
    }
    for (const char* text : {"", "Intf(0x)", "Intf(0x01)", "Intf(0xG)", "Intf(0xAB)", "Intf(0x1",
                             "Intf(0x10000000000000000)", "intf(0x1)", "1"}) {
        EXPECT_NE(errorOf<Wirra::IntfId>(text), "") << text;
    }
    for (const char* text : {"", "10.0.0", "10.0.0.1.2", "10.0.0.01", "1::2::3", ":", "nones",
                             "None", "IpGenAddr(0x00)", "IpGenAddr(0x",
                             "12345::", "IpGenAddr(0x010000000000000000000000000000000g)",
                             "IpGenAddr(0x0100000000000000000000000000000000"}) {
        EXPECT_NE(errorOf<Wirra::IpGenAddr>(text), "") << text;
    }
}

/// Cutting a text anywhere, or changing any character of it, never crashes and never yields the
/// same value: no character of a text is ignored.
template <class T>
void checkDamage(const T& value) {
    const std::string text = valueToStrep(value);
    for (std::size_t length = 0; length < text.size(); ++length) {
        try {
            EXPECT_FALSE(Mox::strepToValue<T>(text.substr(0, length)) == value) << length;
        } catch (const RangeException&) {
        }
    }
    for (std::size_t at = 0; at < text.size(); ++at) {
        for (const char other : {'\0', ' ', '0', '9', 'a', '\'', '}', '.', ':', '\xFF'}) {
            if (text[at] == other) continue;
            std::string damaged = text;
            damaged[at] = other;
            try {
                EXPECT_FALSE(Mox::strepToValue<T>(damaged) == value) << damaged;
            } catch (const RangeException&) {
            }
        }
    }
}

TEST(ParseError, NoCharacterIsIgnored) {
    using ValueSupport::address;
    checkDamage(MessageCounter({Wirra::IntfId(0x1F), Rsvp::rsvpBundleMsg}, 10));
    checkDamage(ErrorCounter(ErrorCounterKey(Rsvp::intfErrorType), 4294967295U));
    const Rsvp::RsvpSessionId session(7, address("10.0.0.1"), 5, address("2001:db8::2"));
    checkDamage(Rsvp::RsvpSpId(session, 3));
    checkDamage(Rsvp::RsvpSpId(session, 3, Rsvp::P2mpSubGroupId(address("none"), 1)));
    checkDamage(Rsvp::RsvpSpBwState(Rsvp::rsvpSpAdmittedBwAdmission, Rsvp::RsvpError(), 1000,
                                    Wirra::IntfId(1)));
}

} // namespace
