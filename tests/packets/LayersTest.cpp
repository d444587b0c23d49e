// Where RSVP is found under link and network headers, and where it is not; and which frames are
// this host's own.

#include "Support.h"

#include "packets/InputError.h"

#include <fmt/format.h>

#include <sstream>

namespace Packets::Test {

/// `words` end with the EtherType.
[[nodiscard]] Octets ethernet(std::initializer_list<std::size_t> words, const Octets& packet) {
    Octets frame = {2, 0, 0x5e, 0x20, 0, 1, 2, 0, 0x5e, 0x10, 0, 1};
    for (const std::size_t word : words) {
        frame = concat({frame, be16(word)});
    }
    return concat({frame, packet});
}

const Octets v4Header = {0x45, 0xc0, 0,    static_cast<std::uint8_t>(20 + path.size()),
                         0,    7,    0,    0,
                         64,   46,   0xba, 0xad,
                         192,  0,    2,    1,
                         192,  0,    2,    2};
const Octets v4 = ethernet({0x0800}, concat({v4Header, path}));

/// `next` names the first of the extension headers.
[[nodiscard]] Octets v6(std::uint8_t next = 46, const Octets& extensions = {},
                        const Octets& payload = path) {
    const Octets length = be16(extensions.size() + payload.size());
    const Octets header = concat({{0x60, 0, 0, 0}, length, {next, 64}, Octets(16, 0x20)});
    return ethernet({0x86dd}, concat({header, Octets(16, 0x21), extensions, payload}));
}

/// An extension header of 8 * (units + 1) octets.
[[nodiscard]] Octets extension(std::uint8_t next, std::uint8_t units = 0) {
    return concat({{next, units}, Octets(6 + units * std::size_t{8}, 0)});
}
[[nodiscard]] Octets fragment(std::uint8_t next, std::size_t offsetAndFlag) {
    return concat({{next, 0}, be16(offsetAndFlag), {0, 0, 0, 9}});
}
[[nodiscard]] Octets retagged(std::initializer_list<std::size_t> etherTypes, const Octets& frame) {
    return ethernet(etherTypes, Octets(frame.begin() + 14, frame.end()));
}

using enum Location;

[[nodiscard]] Location locate(LinkType type, const Frame& frame, RsvpPacket& packet) {
    return FrameDecoder(noKeys).locate(recordOf(type, frame), packet);
}

constexpr std::size_t whole = SIZE_MAX;

/// The capture kept each frame in these lengths; `payload` octets of RSVP are found.
void expect(Location location, std::initializer_list<std::size_t> captured,
            std::initializer_list<Octets> frames, std::size_t payload = path.size()) {
    for (const Octets& octets : frames) {
        for (const std::size_t length : captured) {
            SCOPED_TRACE(fmt::format("frame {:02x}", fmt::join(octets, " ")));
            const Octets kept = firstOf(octets, std::min(length, octets.size()));
            RsvpPacket packet;
            const Frame frame{.captured = kept, .wireLength = octets.size()};
            ASSERT_EQ(locate(LinkType::ethernet, frame, packet), location) << length;
            if (location != found) continue;
            EXPECT_EQ(Octets(packet.payload.begin(), packet.payload.end()), firstOf(path, payload));
            EXPECT_EQ(packet.source.mac, kept.data() + 6);
            const bool isV4 = packet.source.family == Family::ipv4;
            EXPECT_EQ(Octets(packet.source.address, packet.source.address + (isV4 ? 4 : 16)),
                      isV4 ? (Octets{192, 0, 2, 1}) : Octets(16, 0x20));
        }
    }
}

TEST(Layers, Link) {
    const Octets tagged = retagged({0x8100, 100, 0x0800}, v4);
    const Octets doubly = retagged({0x88a8, 9, 0x8100, 9, 0x86dd}, v6());
    const Octets triply = retagged({0x9100, 9, 0x9100, 9, 0x8100, 9, 0x86dd}, v6());
    expect(found, {whole}, {v4, tagged, doubly, triply});
    expect(cut, {0, 9, 13, 17}, {tagged});
    // Another protocol, the other version, a length instead of a type; frames that end too early.
    expect(ignored, {whole, 18}, {retagged({0x8100, 100, 0x0806}, v4), retagged({100}, v4)});
    expect(ignored, {whole}, {retagged({0x86dd}, v4), retagged({0x0800}, v6())});
    expect(ignored, {whole},
           {{}, Octets(13, 2), ethernet({0x8100, 100}, {}), ethernet({0x0800}, {})});
}

/// What stands before the IP packet on every link, and the direction that it tells.
TEST(Layers, Links) {
    const Octets ip4(v4.begin() + 14, v4.end());
    const Octets v6Frame = v6();
    const Octets ip6(v6Frame.begin() + 14, v6Frame.end());
    const Octets mac = {2, 0, 0x5e, 0x20, 0, 1, 2, 0, 0x5e, 0x10, 0, 1};
    const Octets snap = {0xaa, 0xaa, 3, 0, 0, 0};
    const Octets labels = {0, 1, 0x40, 64, 0, 2, 0x41, 63};
    const Octets pppoe = {0x11, 0, 0, 1, 0, 70};
    const auto cooked = [](std::uint8_t type, std::size_t protocol) {
        return concat({{0, type, 0, 1, 0, 6, 2, 0, 0x5e, 0x10, 0, 1, 0, 0}, be16(protocol)});
    };
    const auto cooked2 = [](std::uint8_t type, std::size_t protocol) {
        return concat(
            {be16(protocol), {0, 0, 0, 0, 0, 1, 0, 1, type, 6, 2, 0, 0x5e, 0x10, 0, 1, 0, 0}});
    };
    struct Case {
        LinkType type;
        Octets header;
        const Octets& packet;
        Direction direction = Direction::unknown;
    };
    constexpr LinkType ethernetLink = LinkType::ethernet;
    constexpr LinkType linuxCooked = LinkType::linuxCooked;
    constexpr LinkType linuxCooked2 = LinkType::linuxCooked2;
    constexpr LinkType rawIp = LinkType::rawIp;
    constexpr LinkType bsdLoopback = LinkType::bsdLoopback;
    constexpr LinkType ppp = LinkType::ppp;
    constexpr LinkType ciscoHdlc = LinkType::ciscoHdlc;
    constexpr Direction unknown = Direction::unknown;
    constexpr Direction received = Direction::received;
    constexpr Direction sent = Direction::sent;
    const Case cases[] = {
        {ethernetLink, concat({mac, be16(0x8847), labels}), ip4},
        {ethernetLink, concat({mac, be16(0x8100), be16(7), be16(0x8848), labels}), ip6},
        {ethernetLink, concat({mac, be16(200), snap, be16(0x0800)}), ip4},
        {ethernetLink, concat({mac, be16(0x8100), be16(7), be16(200), snap, be16(0x86dd)}), ip6},
        {ethernetLink, concat({mac, be16(200), {6, 6, 3}}), ip4},
        {ethernetLink, concat({mac, be16(0x8864), pppoe, be16(0x0057)}), ip6},
        {ethernetLink, concat({mac, be16(0x8864), pppoe, {0x21}}), ip4},
        {linuxCooked, cooked(0, 0x0800), ip4, received},
        {linuxCooked, cooked(3, 0x86dd), ip6},
        {linuxCooked, concat({cooked(4, 0x8100), be16(7), be16(0x0800)}), ip4, sent},
        {linuxCooked, concat({cooked(4, 4), snap, be16(0x0800)}), ip4, sent},
        {linuxCooked2, cooked2(2, 0x86dd), ip6, received},
        {linuxCooked2, concat({cooked2(4, 0x8847), labels}), ip4, sent},
        {rawIp, {}, ip4},
        {rawIp, {}, ip6},
        {bsdLoopback, {2, 0, 0, 0}, ip4},
        {bsdLoopback, {0, 0, 0, 2}, ip4},
        {bsdLoopback, {30, 0, 0, 0}, ip6},
        {bsdLoopback, {0, 0, 0, 24}, ip6},
        {ppp, {0xff, 3, 0, 0x21}, ip4},
        {ppp, {0, 0x57}, ip6},
        {ppp, {0x57}, ip6},
        {ppp, concat({{0xff, 3, 2, 0x81}, labels}), ip4},
        {ppp, {0x0f, 0, 8, 0}, ip4},
        {ciscoHdlc, {0x8f, 0, 0x86, 0xdd}, ip6},
    };
    for (const Case& each : cases) {
        const Octets octets = concat({each.header, each.packet});
        SCOPED_TRACE(testing::Message() << "case " << &each - cases);
        RsvpPacket packet;
        const auto locatedIn = [&](std::size_t kept, std::size_t wireLength) {
            const Octets part = firstOf(octets, kept);
            return locate(each.type, {.captured = part, .wireLength = wireLength}, packet);
        };
        for (std::size_t kept = 0; kept < octets.size(); ++kept) {
            // A link header that is not whole tells nothing, unless the frame ends there.
            if (kept < each.header.size()) {
                ASSERT_EQ(locatedIn(kept, octets.size()), cut) << kept;
            }
            ASSERT_EQ(locatedIn(kept, kept), ignored) << kept;
        }
        ASSERT_EQ(locate(each.type, {.captured = octets, .wireLength = 0}, packet), found);
        EXPECT_EQ(packet.payload.size(), path.size());
        EXPECT_EQ(packet.source.direction, each.direction);
        const bool hasMac =
            each.type == ethernetLink || each.type == linuxCooked || each.type == linuxCooked2;
        ASSERT_EQ(packet.source.mac != nullptr, hasMac);
        const FrameSource source = packet.source;
        const LocalAddress locals[] = {LocalAddress("02:00:5e:10:00:01")};
        EXPECT_EQ(directionOf(source, locals), each.direction != unknown ? each.direction
                                               : hasMac                  ? sent
                                                                         : received);
        // Not the other version, nor under another number.
        EXPECT_EQ(locate(LinkType::unknown, {.captured = octets, .wireLength = 0}, packet),
                  ignored);
    }
    const Octets others[] = {concat({mac, be16(200), {0xaa, 0xaa, 3, 0, 0, 1}, be16(0x0800), ip4}),
                             concat({mac, be16(200), {0x42, 0x42, 3}, ip4}),
                             concat({mac, be16(0x8847), {0, 1, 0x41, 64}, {0, 0}, ip4})};
    RsvpPacket packet;
    for (const Octets& other : others) {
        EXPECT_EQ(locate(ethernetLink, {.captured = other, .wireLength = 0}, packet), ignored);
    }
    const Octets family = concat({{7, 0, 0, 0}, ip4});
    EXPECT_EQ(locate(bsdLoopback, {.captured = family, .wireLength = 0}, packet), ignored);
}

TEST(Layers, Ipv4) {
    const Octets padded = concat({v4, Octets(20, 0x11)});
    const Octets options = concat({firstOf(v4, 34), Octets(40, 1), path});
    // Octet 14 has version and header length, 17 the total length, 20 flags and 23 the protocol.
    expect(found, {whole, v4.size()}, {padded});
    expect(found, {whole}, {with(with(options, 14, 0x4f), 17, 60 + path.size())});
    expect(found, {whole}, {with(v4, 20, 0x40), with(v4, 20, 0x80)});
    expect(found, {whole}, {with(firstOf(v4, 34), 17, 20)}, 0);
    expect(found, {whole}, {with(v4, 17, 20 + path.size() - 3)}, path.size() - 3);
    expect(cut, {14, 23, 30, v4.size() - 1}, {v4});
    expect(ignored, {whole}, {with(v4, 14, 0x44), with(v4, 14, 0x55), with(v4, 17, 19)});
    expect(ignored, {whole}, {with(v4, 20, 0x20), with(v4, 21, 1)});
    // What is there tells enough.
    expect(ignored, {whole, 60}, {with(v4, 17, 21 + path.size())});
    expect(ignored, {whole, 24}, {with(v4, 23, 6), with(v4, 23, 134)});
    expect(ignored, {whole, 15}, {with(v4, 14, 0x65)});
}

TEST(Layers, WireLengthBelowTheCapturedIsNoCut) {
    RsvpPacket packet;
    for (const std::size_t wireLength : {std::size_t{0}, std::size_t{20}, v4.size() - 1}) {
        const Frame frame{.captured = v4, .wireLength = wireLength};
        EXPECT_EQ(locate(LinkType::ethernet, frame, packet), found) << wireLength;
    }
}

TEST(Layers, Ipv6) {
    const Octets hopByHop = v6(0, extension(46));
    Octets many = concat({extension(43, 4), extension(60, 2), extension(46, 1)});
    for (int left = 200; left > 0; --left) {
        many = concat({extension(60), many});
    }
    const Octets later = concat({extension(139), extension(140, 1), extension(46)});
    // The length of an authentication header counts in other units.
    const Octets authentication = concat({{46, 4}, Octets(22, 0)});
    expect(found, {whole}, {v6(), concat({v6(), Octets(5, 0x10)}), hopByHop, v6(0, many)});
    expect(found, {whole}, {v6(135, later), v6(51, authentication)});
    expect(found, {whole}, {v6(46, {}, {}), v6(60, extension(46), {})}, 0);
    expect(found, {whole}, {with(v6(), 19, path.size() - 5)}, path.size() - 5);
    expect(cut, {20, 53}, {v6()});
    expect(cut, {60, 62}, {hopByHop});
    // Too long, hop-by-hop options that are not first, an extension that does not fit.
    expect(ignored, {whole},
           {with(v6(), 19, path.size() + 1), v6(60, concat({extension(0), extension(46)}))});
    expect(ignored, {whole}, {v6(60, {46, 200, 0, 0, 0, 0, 0, 0}), v6(60, {}, {46, 0, 0, 0})});
    // Fragments; the first two are the whole.
    expect(found, {whole}, {v6(44, fragment(46, 0)), v6(44, fragment(46, 6))});
    expect(ignored, {whole}, {v6(44, fragment(46, 1)), v6(44, fragment(46, 8))});
    expect(cut, {70}, {v6(44, fragment(46, 1)), v6(44, fragment(60, 1))});
    expect(ignored, {whole, 70}, {v6(44, fragment(17, 1))});
    // Encrypted, nothing, a tunnel, another protocol.
    expect(ignored, {whole, 62},
           {v6(50, extension(46)), v6(59, extension(46)), v6(0, extension(17))});
    expect(ignored, {whole, 21}, {v6(41), v6(17)});
}

TEST(LocalAddress, MatchesTheFramesSource) {
    const Octets mac = {0x02, 0x00, 0x5e, 0x10, 0x00, 0x0a};
    // The first four octets are the address of the IPv4 frame.
    const Octets address = concat({{0x20, 0x01, 0x0d, 0xb8}, Octets(11, 0), {1}});
    const FrameSource source4{Direction::unknown, mac.data(), Family::ipv4, address.data()};
    const FrameSource source6{Direction::unknown, mac.data(), Family::ipv6, address.data()};
    const auto check = [&](bool ipv4, bool ipv6, std::initializer_list<const char*> texts) {
        for (const char* text : texts) {
            const LocalAddress locals[] = {LocalAddress("192.0.2.1"), LocalAddress(text)};
            EXPECT_EQ(directionOf(source4, locals) == Direction::sent, ipv4) << text;
            EXPECT_EQ(directionOf(source6, locals) == Direction::sent, ipv6) << text;
        }
    };
    check(true, false, {"32.1.13.184"});
    check(false, true, {"2001:db8::1", "2001:0DB8:0:0::0001"});
    check(true, true, {"02:00:5e:10:00:0a", "02:00:5E:10:00:0A", "02:00:5e:10:00", "02"});
    check(
        false, false,
        {"32.1.13.185", "2001:db8::2", "2001:db8::", "02:00:5e:10:00:0b", "02:00:5e:11", "20:01"});
    // A link without MAC addresses.
    EXPECT_FALSE(
        LocalAddress("02").matches({Direction::unknown, nullptr, Family::ipv6, address.data()}));
}

TEST(LocalAddress, RefusesOtherTextAndSaysSo) {
    std::istringstream texts(
        "et1 192.0.2 192.0.2.256 2 02: :02 02:0 02:000 02:00:5e:g0 0x:02 +2:00 -1:00 02::00:5e::01 "
        "02:00:5e:10:00:0a:01 02-00-5e 2001:db8::1/64 fe80::1%eth0");
    for (std::string text; texts >> text;) {
        EXPECT_THROW(LocalAddress{text}, InputError) << text;
    }
    EXPECT_THROW(LocalAddress(""), InputError);
    EXPECT_THROW(LocalAddress("192.0.2.1 "), InputError);
    // What stands before a NUL is no address by itself.
    EXPECT_THROW(LocalAddress(std::string_view("192.0.2.1\0", 10)), InputError);
    EXPECT_THROW(LocalAddress(std::string_view("02:00\0", 6)), InputError);
}

} // namespace Packets::Test
