#include "Support.h"

#include "packets/InputError.h"

#include <array>

namespace Packets::Test {
namespace {

constexpr std::array<std::uint8_t, 6> mac{0x02, 0x00, 0x5e, 0x10, 0x00, 0x0a};
constexpr std::array<std::uint8_t, 16> address{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0,
                                               0,    0,    0,    0,    0, 0, 0, 0x01};

[[nodiscard]] FrameSource source(Family family) {
    return {.mac = mac.data(), .family = family, .address = address.data()};
}

struct Case {
    const char* text;
    bool ipv4; // matches the IPv4 frame from 32.1.13.184
    bool ipv6; // matches the IPv6 frame from 2001:db8::1
};

TEST(LocalAddress, MatchesTheFramesSource) {
    const Case cases[] = {
        {"32.1.13.184", true, false}, // the same four octets begin the IPv6 address
        {"32.1.13.185", false, false},
        {"2001:db8::1", false, true},
        {"2001:0DB8:0:0::0001", false, true},
        {"2001:db8::2", false, false},
        {"2001:db8::", false, false},
        {"02:00:5e:10:00:0a", true, true},
        {"02:00:5E:10:00:0A", true, true},
        {"02:00:5e:10:00", true, true},
        {"02", true, true},
        {"02:00:5e:10:00:0b", false, false},
        {"02:00:5e:11", false, false},
        {"20:01", false, false}, // octets of the IP address, not of the MAC address
        {"00:5e:10", false, false},
    };
    for (const Case& row : cases) {
        const LocalAddress local(row.text);
        EXPECT_EQ(local.matches(source(Family::ipv4)), row.ipv4) << row.text;
        EXPECT_EQ(local.matches(source(Family::ipv6)), row.ipv6) << row.text;
    }
}

TEST(LocalAddress, AFrameWithoutMacMatchesNoPrefix) {
    FrameSource bare = source(Family::ipv6);
    bare.mac = nullptr;
    EXPECT_FALSE(LocalAddress("02").matches(bare));
    EXPECT_TRUE(LocalAddress("2001:db8::1").matches(bare));
}

TEST(LocalAddress, DirectionIsSentIfAnyMatches) {
    const std::vector<LocalAddress> locals{LocalAddress("192.0.2.1"), LocalAddress("02:00:5e:10")};
    EXPECT_EQ(directionOf(source(Family::ipv4), locals), Direction::sent);
    EXPECT_EQ(directionOf(source(Family::ipv4), std::span(locals).first(1)), Direction::received);
    EXPECT_EQ(directionOf(source(Family::ipv4), {}), Direction::received);
}

TEST(LocalAddress, RefusesOtherTextAndSaysSo) {
    const std::string texts[] = {
        "",
        "et1",
        "192.0.2",
        "192.0.2.256",
        "192.0.2.1 ",
        "2",
        "02:",
        ":02",
        "02:0",
        "02:000",
        "02:00:5e:g0",
        "0x:02",
        "+2:00",
        "-1:00",
        "02::00:5e::01",
        "02:00:5e:10:00:0a:01",
        "02-00-5e",
        "2001:db8::1/64",
        "fe80::1%eth0",
    };
    for (const std::string& text : texts) {
        try {
            const LocalAddress local(text);
            ADD_FAILURE() << "'" << text << "' was taken";
        } catch (const InputError& error) {
            const std::string message = error.what();
            EXPECT_NE(message.find("'" + text + "'"), std::string::npos) << message;
            EXPECT_NE(message.find("MAC address"), std::string::npos) << message;
        }
    }
    // What stands before a NUL is no address by itself.
    using namespace std::string_view_literals;
    EXPECT_THROW(LocalAddress("192.0.2.1\0x"sv), InputError);
    EXPECT_THROW(LocalAddress("2001:db8::1\0"sv), InputError);
    EXPECT_THROW(LocalAddress("02:00\0"sv), InputError);
}

} // namespace
} // namespace Packets::Test
