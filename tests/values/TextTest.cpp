// Text forms: the exact texts that other programs parse, and round trips of random values.

#include "ValueSupport.h"

#include "Mox/Format.h"
#include "Rsvp/ErrorCounter.h"
#include "Rsvp/MessageCounter.h"
#include "Rsvp/RsvpCliId.h"
#include "Rsvp/RsvpSpOperState.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using Mox::Seconds;
using Rsvp::P2mpSubGroupId;
using Rsvp::RsvpSessionId;
using Rsvp::RsvpSpId;
using Rsvp::Vesk::ErrorCounter;
using Rsvp::Vesk::ErrorCounterKey;
using Rsvp::Vesk::MessageCounter;
using Rsvp::Vesk::MessageCounterKey;
using ValueSupport::address;
using Wirra::IntfId;

/// The text is `valueToStrep`, and what streams, fmt and the readers make of it agrees.
template <class T>
void checkText(const T& value, const std::string& text) {
    EXPECT_EQ(valueToStrep(value), text);
    EXPECT_EQ(fmt::format("{}", value), text);
    EXPECT_EQ(fmt::format("{:>200}", value), fmt::format("{:>200}", text));
    std::ostringstream stream;
    stream << value;
    EXPECT_EQ(stream.str(), text);
    T into = T(value);
    EXPECT_EQ(Mox::strepToValue<T>(text, &into), value) << text;
    EXPECT_EQ(into, value) << text;
    Mox::CharRange range(text);
    EXPECT_EQ(Mox::readValue<T>(range), value) << text;
    EXPECT_TRUE(range.empty()) << text;
}

TEST(Text, Counters) {
    const MessageCounterKey key(IntfId(0x1F), Rsvp::rsvpResvTearMsg);
    const std::string keyText =
        "Value('Rsvp::Vesk::MessageCounterKey', ** {'intfId': Intf(0x1f), 'mType': "
        "rsvpResvTearMsg})";
    checkText(key, keyText);
    checkText(MessageCounter(key, 5),
              "Value('Rsvp::Vesk::MessageCounter', ** {'key': " + keyText + ", 'count': 5})");
    checkText(MessageCounter(),
              "Value('Rsvp::Vesk::MessageCounter', ** {'key': "
              "Value('Rsvp::Vesk::MessageCounterKey', ** {'intfId': Intf(0xffffffff), 'mType': "
              "rsvpNoneMsg}), 'count': 0})");
    checkText(ErrorCounterKey(Rsvp::arpErrorType), "arpErrorType");
    checkText(ErrorCounterKey(Rsvp::RsvpErrorTypeInstance(99)), "99");
    checkText(ErrorCounter(ErrorCounterKey(Rsvp::arpErrorType), 4294967295U),
              "Value('Rsvp::Vesk::ErrorCounter', ** {'key': arpErrorType, 'count': 4294967295})");
}

TEST(Text, Identifiers) {
    checkText(IntfId(0), "Intf(0x0)");
    checkText(IntfId(0xFEDCBA9876543210U), "Intf(0xfedcba9876543210)");
    for (const char* text : {"0.0.0.0", "10.0.0.1", "255.255.255.255", "::", "::1", "2001:db8::1",
                             "::ffff:10.0.0.1", "fe80::1:0:0:2", "none"}) {
        checkText(address(text), text);
    }
    checkText(Wirra::IpGenAddr({1}, Wirra::unknownAddressFamily),
              "IpGenAddr(0x0100000000000000000000000000000000)");
    checkText(Wirra::IpGenAddr({1, 2, 3, 4, 5}, Wirra::ipv4AddressFamily),
              "IpGenAddr(0x0102030405000000000000000000000001)");
    checkText(Wirra::IpGenAddr({0xAB}, static_cast<Wirra::AddressFamily>(0xCD)),
              "IpGenAddr(0xab000000000000000000000000000000cd)");

    const RsvpSessionId session(7, address("10.0.0.1"), 5, address("2001:db8::2"));
    const std::string sessionText =
        "Value('Rsvp::RsvpSessionId', ** {'sessionType': 7, 'destination': 10.0.0.1, 'tunnelId': "
        "5, 'extendedTunnelId': 2001:db8::2})";
    checkText(session, sessionText);
    checkText(RsvpSpId(session, 3), "Value('Rsvp::RsvpSpId', ** {'sessionId': " + sessionText +
                                        ", 'lspId': 3, 'subGroupId': None})");
    const P2mpSubGroupId group(address("10.0.0.9"), 65535);
    const std::string groupText =
        "Value('Rsvp::P2mpSubGroupId', ** {'originator': 10.0.0.9, 'subGroup': 65535})";
    checkText(group, groupText);
    checkText(RsvpSpId(session, 65536, group),
              "Value('Rsvp::RsvpSpId', ** {'sessionId': " + sessionText +
                  ", 'lspId': 65536, 'subGroupId': " + groupText + "})");
    checkText(Rsvp::RsvpCliId(), "1000000");
    const std::string errorText = "Value('Rsvp::RsvpError', ** {'errorCode': 24, 'errorValue': 5})";
    checkText(Rsvp::RsvpError(24, 5), errorText);
    checkText(Rsvp::RsvpSpBwState(Rsvp::rsvpSpRejectedBwAdmission, Rsvp::RsvpError(24, 5),
                                  18446744073709551615U, IntfId(2)),
              "Value('Rsvp::RsvpSpBwState', ** {'admission': rsvpSpRejectedBwAdmission, 'error': " +
                  errorText + ", 'bandwidth': 18446744073709551615, 'intfId': Intf(0x2)})");
}

template <class T, class Make>
void checkRoundTrips(Make make) {
    ValueSupport::Random random(31);
    for (int round = 0; round < 500; ++round) {
        const T value = make(random);
        const std::string text = valueToStrep(value);
        ASSERT_EQ(Mox::strepToValue<T>(text), value) << text;
        ASSERT_EQ(valueToStrep(Mox::strepToValue<T>(text)), text);
    }
}

TEST(Text, RandomValuesRoundTrip) {
    using Random = ValueSupport::Random;
    const auto messageKey = [](Random& random) {
        return MessageCounterKey(random.intfId(),
                                 static_cast<Rsvp::RsvpMsgType>(random.number<std::uint32_t>()));
    };
    const auto errorKey = [](Random& random) {
        return ErrorCounterKey(Rsvp::RsvpErrorTypeInstance(random.number<std::uint8_t>()));
    };
    checkRoundTrips<MessageCounter>([&](Random& random) {
        return MessageCounter(messageKey(random), random.number<std::uint32_t>());
    });
    checkRoundTrips<ErrorCounter>([&](Random& random) {
        return ErrorCounter(errorKey(random), random.number<std::uint32_t>());
    });
    checkRoundTrips<Wirra::IpGenAddr>([](Random& random) { return random.ipGenAddr(); });
    checkRoundTrips<RsvpSpId>([](Random& random) { return random.spId(); });
    checkRoundTrips<Rsvp::RsvpSpBwState>([](Random& random) { return random.bwState(); });
}

TEST(Text, BoolsAndNumbers) {
    EXPECT_EQ(Mox::valueToStrep(true), "True");
    EXPECT_EQ(Mox::valueToStrep(false), "False");
    EXPECT_TRUE(Mox::strepToValue<bool>("True"));
    EXPECT_FALSE(Mox::strepToValue<bool>("False"));
    EXPECT_EQ(Mox::valueToStrep(std::uint8_t{200}), "200");
    EXPECT_EQ(Mox::strepToValue<std::uint32_t>("4294967295"), 4294967295U);
    EXPECT_EQ(Mox::strepToValue<std::uint8_t>("255"), 255U);
}

TEST(Text, SecondsComeBackBitByBit) {
    using Limits = std::numeric_limits<double>;
    const std::vector<std::pair<double, std::string>> exact = {
        {0.0, "0"},
        {-0.0, "-0"},
        {12.5, "12.5"},
        {100.0, "100"},
        {0.1, "0.1"},
        {1743286400.31, "1743286400.31"},
        {1e300, "1e+300"},
        {Limits::infinity(), "inf"},
        {-Limits::infinity(), "-inf"},
        {Limits::quiet_NaN(), "nan"},
        {-Limits::quiet_NaN(), "nan"},
        {Limits::denorm_min(), "5e-324"},
    };
    for (const auto& [value, text] : exact) {
        EXPECT_EQ(valueToStrep(Seconds(value)), text);
        const double read = Mox::strepToValue<Seconds>(text).value();
        if (std::isnan(value)) {
            EXPECT_TRUE(std::isnan(read));
        } else {
            EXPECT_EQ(std::bit_cast<std::uint64_t>(read), std::bit_cast<std::uint64_t>(value))
                << text;
        }
    }
    ValueSupport::Random random(5);
    for (int round = 0; round < 20000; ++round) {
        const auto value = std::bit_cast<double>(random.number<std::uint64_t>());
        if (std::isnan(value)) continue;
        const std::string text = valueToStrep(Seconds(value));
        ASSERT_EQ(std::bit_cast<std::uint64_t>(Mox::strepToValue<Seconds>(text).value()),
                  std::bit_cast<std::uint64_t>(value))
            << text;
    }
    std::ostringstream stream;
    stream << Seconds(1743286400.31);
    EXPECT_EQ(stream.str(), "1.74329e+09");
}

TEST(Text, RangesStopAfterTheValue) {
    const MessageCounter counter({IntfId(1), Rsvp::rsvpAckMsg}, 5);
    const std::string text = valueToStrep(counter);
    const std::string longer = text + "}) trailing";
    Mox::CharRange range(longer);
    EXPECT_EQ(MessageCounter(range), counter);
    EXPECT_EQ(range.rest(), "}) trailing");
    EXPECT_THROW(Mox::strepToValue<MessageCounter>(longer), Mox::RangeException);
    EXPECT_THROW(Mox::strepToValue<MessageCounter>(text + " "), Mox::RangeException);
}

TEST(Text, PrintfStyleFormats) {
    const std::string text = "100 % sure";
    EXPECT_EQ(Mox::_fmt("plain"), "plain");
    EXPECT_EQ(Mox::_fmt("%s", ""), "");
    EXPECT_EQ(Mox::_fmt("%s%u", text, 7U), "100 % sure7");
    EXPECT_EQ(Mox::_fmt("<%u|%s>", std::numeric_limits<std::uint64_t>::max(), text),
              "<18446744073709551615|100 % sure>");
    EXPECT_EQ(Mox::_fmt("%s,%s", "%u", "%s"), "%u,%s");
    EXPECT_EQ(Mox::_fmt("%u", std::uint8_t{65}), "65");
}

} // namespace
