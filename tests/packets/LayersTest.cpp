// Where RSVP is found under link and network headers, and where it is not. Each row is one frame.

#include "Support.h"

namespace Packets::Test {
namespace {

const Octets macs = {2, 0, 0x5e, 0x20, 0, 1, 2, 0, 0x5e, 0x10, 0, 1};
const Octets rsvpMessage = plainMessage();

[[nodiscard]] Octets ethernet(std::initializer_list<std::size_t> etherTypes, const Octets& packet) {
    Octets frame = macs;
    for (const std::size_t etherType : etherTypes) {
        // What is no tag control information here is the last EtherType.
        frame = concat({frame, be16(etherType)});
        if (etherType == 0x8100 || etherType == 0x88a8 || etherType == 0x9100) {
            frame = concat({frame, be16(100)});
        }
    }
    return concat({frame, packet});
}

struct Ipv4 {
    std::size_t words = 5; // header length in the header; there are as many words
    std::uint8_t version = 4;
    std::uint8_t protocol = 46;
    std::size_t fragment = 0;
    std::size_t lengthMore = 0; // added to the right total length, modulo 2^16
    Octets payload = rsvpMessage;
};

[[nodiscard]] Octets v4(const Ipv4& from) {
    const std::size_t header = std::max<std::size_t>(from.words, 5) * 4;
    const std::size_t total = (header + from.payload.size() + from.lengthMore) & 0xffff;
    const auto first = static_cast<std::uint8_t>(from.version << 4 | from.words);
    return ethernet({0x0800}, concat({{first, 0xc0},
                                      be16(total),
                                      be16(7),
                                      be16(from.fragment),
                                      {64, from.protocol, 0xba, 0xad},
                                      {192, 0, 2, 1, 192, 0, 2, 2},
                                      Octets(header - 20, 1),
                                      from.payload}));
}

struct Ipv6 {
    std::uint8_t first = 46; // next header
    Octets extensions = {};
    std::size_t lengthMore = 0;
    Octets payload = rsvpMessage;
    std::uint8_t version = 6;
};

[[nodiscard]] Octets v6(const Ipv6& from) {
    const std::size_t length =
        (from.extensions.size() + from.payload.size() + from.lengthMore) & 0xffff;
    return ethernet({0x86dd}, concat({{static_cast<std::uint8_t>(from.version << 4), 0, 0, 0},
                                      be16(length),
                                      {from.first, 64},
                                      Octets(16, 0x20),
                                      Octets(16, 0x21),
                                      from.extensions,
                                      from.payload}));
}

/// An extension header of 8 * (units + 1) octets.
[[nodiscard]] Octets extension(std::uint8_t next, std::uint8_t units) {
    return concat({{next, units}, Octets(6 + units * std::size_t{8}, 0)});
}

[[nodiscard]] Octets fragmentHeader(std::uint8_t next, std::size_t offsetAndFlag) {
    return concat({{next, 0}, be16(offsetAndFlag), {0, 0, 0, 9}});
}

[[nodiscard]] Octets repeated(std::uint8_t number, int times) {
    Octets all;
    for (int left = times; left > 0; --left) {
        all = concat({all, extension(left == 1 ? 46 : number, 0)});
    }
    return all;
}

constexpr auto found = Location::found;
constexpr auto ignored = Location::ignored;
constexpr auto cut = Location::cut;
constexpr std::size_t whole = SIZE_MAX;

struct Case {
    const char* name;
    Octets octets;
    Location location;
    std::size_t captured = whole;             // octets of the frame that the capture kept
    std::size_t payload = rsvpMessage.size(); // where RSVP is found
};

std::ostream& operator<<(std::ostream& out, const Case& row) { return out << row.name; }

class Layers : public testing::TestWithParam<Case> {};

TEST_P(Layers, FindRsvp) {
    const Case& row = GetParam();
    OwnedFrame owned{.octets = row.octets, .wireLength = row.octets.size()};
    owned.octets.resize(std::min(row.captured, row.octets.size()));
    owned.octets.shrink_to_fit();

    RsvpPacket packet;
    ASSERT_EQ(locateRsvp(LinkType::ethernet, owned.frame(), packet), row.location);
    if (row.location != found) {
        EXPECT_EQ(packet.payload.data(), nullptr);
        return;
    }
    const Octets payload(packet.payload.begin(), packet.payload.end());
    const auto length = static_cast<Octets::difference_type>(row.payload);
    EXPECT_EQ(payload, Octets(rsvpMessage.begin(), rsvpMessage.begin() + length));
    EXPECT_EQ(Octets(packet.source.mac, packet.source.mac + 6), (Octets{2, 0, 0x5e, 0x10, 0, 1}));
    if (packet.source.family == Family::ipv4) {
        EXPECT_EQ(Octets(packet.source.address, packet.source.address + 4), (Octets{192, 0, 2, 1}));
    } else {
        EXPECT_EQ(Octets(packet.source.address, packet.source.address + 16), Octets(16, 0x20));
    }
}

[[nodiscard]] std::string nameOf(const testing::TestParamInfo<Case>& info) {
    return info.param.name;
}

[[nodiscard]] Octets retagged(const Octets& frame, std::initializer_list<std::size_t> etherTypes) {
    return ethernet(etherTypes, Octets(frame.begin() + 14, frame.end()));
}

INSTANTIATE_TEST_SUITE_P(
    Link, Layers,
    testing::Values(Case{"Untagged", v4({}), found},
                    Case{"Tag", retagged(v4({}), {0x8100, 0x0800}), found},
                    Case{"ServiceTag", retagged(v6({}), {0x88a8, 0x8100, 0x86dd}), found},
                    Case{"OldServiceTags", retagged(v6({}), {0x9100, 0x9100, 0x8100, 0x86dd}),
                         found},
                    Case{"TagThenOther", retagged(v4({}), {0x8100, 0x0806}), ignored},
                    Case{"WrongEtherTypeForVersion", retagged(v4({}), {0x86dd}), ignored},
                    Case{"Ieee8023Length", retagged(v4({}), {100}), ignored},
                    Case{"NoFrameAtAll", {}, ignored}, Case{"ShortFrame", Octets(13, 2), ignored},
                    Case{"EndsInTag", ethernet({0x8100}, {}), ignored},
                    Case{"EndsAfterEtherType", ethernet({0x0800}, {}), ignored},
                    Case{"NothingCaptured", v4({}), cut, 0}, Case{"CutInMac", v4({}), cut, 9},
                    Case{"CutInEtherType", v4({}), cut, 13},
                    Case{"CutInTag", retagged(v4({}), {0x8100, 0x0800}), cut, 17},
                    Case{"CutAfterOtherEtherType", retagged(v4({}), {0x0806}), ignored, 14}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Network4, Layers,
    testing::Values(
        Case{"LongestHeader", v4({.words = 15}), found},
        Case{"HeaderTooShort", v4({.words = 4}), ignored},
        Case{"WrongVersion", v4({.version = 5}), ignored},
        Case{"OtherProtocol", v4({.protocol = 134}), ignored},
        Case{"NoPayload", v4({.payload = {}}), found, whole, 0},
        Case{"Padding", concat({v4({}), Octets(20, 0x11)}), found},
        Case{"LengthBelowHeader", v4({.lengthMore = 0x10000 - rsvpMessage.size() - 1}), ignored},
        Case{"LengthBelowPayload", v4({.lengthMore = 0x10000 - 3}), found, whole,
             rsvpMessage.size() - 3},
        Case{"LengthOverFrame", v4({.lengthMore = 1}), ignored},
        Case{"LengthOverFrameAndCut", v4({.lengthMore = 1}), ignored, 60},
        Case{"DoNotFragment", v4({.fragment = 0x4000}), found},
        Case{"ReservedFlag", v4({.fragment = 0x8000}), found},
        Case{"FirstFragment", v4({.fragment = 0x2000}), ignored},
        Case{"LastFragment", v4({.fragment = 0x0001}), ignored},
        Case{"CutBeforeHeader", v4({}), cut, 14}, Case{"CutBeforeProtocol", v4({}), cut, 23},
        Case{"CutInHeader", v4({}), cut, 30}, Case{"CutInPayload", v4({}), cut, v4({}).size() - 1},
        Case{"CutInPadding", concat({v4({}), Octets(20, 0x11)}), found, v4({}).size()},
        Case{"OtherProtocolCut", v4({.protocol = 6}), ignored, 24},
        Case{"OtherVersionCut", v4({.version = 6}), ignored, 15}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Network6, Layers,
    testing::Values(
        Case{"Plain", v6({}), found}, Case{"WrongVersion", v6({.version = 4}), ignored},
        Case{"NoPayload", v6({.payload = {}}), found, whole, 0},
        Case{"Padding", concat({v6({}), Octets(5, 0x10)}), found},
        Case{"LengthOverFrame", v6({.lengthMore = 1}), ignored},
        Case{"LengthBelowPayload", v6({.lengthMore = 0x10000 - 5}), found, whole,
             rsvpMessage.size() - 5},
        Case{"HopByHop", v6({.first = 0, .extensions = extension(46, 0)}), found},
        Case{"HopByHopLater",
             v6({.first = 60, .extensions = concat({extension(0, 0), extension(46, 0)})}), ignored},
        Case{"AllOptionsAndRouting",
             v6({.first = 0,
                 .extensions = concat({extension(60, 2), extension(43, 4), extension(60, 0),
                                       extension(46, 1)})}),
             found},
        Case{"MobilityIdentityShim",
             v6({.first = 135,
                 .extensions = concat({extension(139, 0), extension(140, 1), extension(46, 0)})}),
             found},
        Case{"Authentication", // its length counts in other units: 4 * (4 + 2) octets
             v6({.first = 51, .extensions = concat({{46, 4}, Octets(22, 0)})}), found},
        Case{"ManyExtensions", v6({.first = 60, .extensions = repeated(60, 200)}), found},
        Case{"ExtensionFillsPacket",
             v6({.first = 60, .extensions = extension(46, 0), .payload = {}}), found, whole, 0},
        Case{"ExtensionBeyondPacket", v6({.first = 60, .extensions = {46, 200, 0, 0, 0, 0, 0, 0}}),
             ignored},
        Case{"ExtensionHeaderIncomplete", v6({.first = 60, .payload = {46, 0, 0, 0}}), ignored},
        Case{"AtomicFragment", v6({.first = 44, .extensions = fragmentHeader(46, 0)}), found},
        Case{"FragmentReservedBits", v6({.first = 44, .extensions = fragmentHeader(46, 6)}), found},
        Case{"FirstFragment", v6({.first = 44, .extensions = fragmentHeader(46, 1)}), ignored},
        Case{"LastFragment", v6({.first = 44, .extensions = fragmentHeader(46, 8)}), ignored},
        Case{"FragmentCut", v6({.first = 44, .extensions = fragmentHeader(46, 1)}), cut, 70},
        Case{"FragmentOfOptionsCut", v6({.first = 44, .extensions = fragmentHeader(60, 1)}), cut,
             70},
        Case{"FragmentOfOtherCut", v6({.first = 44, .extensions = fragmentHeader(17, 1)}), ignored,
             70},
        Case{"Encrypted", v6({.first = 50, .extensions = extension(46, 0)}), ignored},
        Case{"NoNextHeader", v6({.first = 59, .extensions = extension(46, 0)}), ignored},
        Case{"Tunnelled", v6({.first = 41}), ignored}, Case{"CutBeforeNextHeader", v6({}), cut, 20},
        Case{"CutInHeader", v6({}), cut, 53},
        Case{"CutInExtension", v6({.first = 0, .extensions = extension(46, 0)}), cut, 60},
        Case{"CutAfterExtension", v6({.first = 0, .extensions = extension(46, 0)}), cut, 62},
        Case{"OtherCutInHeader", v6({.first = 17}), ignored, 21},
        Case{"OtherAfterExtensionCut", v6({.first = 0, .extensions = extension(17, 0)}), ignored,
             62}),
    nameOf);

TEST(Layers, WireLengthBelowCapturedIsNoCut) {
    const Octets octets = v4({});
    RsvpPacket packet;
    for (const std::size_t wireLength : {std::size_t{0}, std::size_t{20}, octets.size() - 1}) {
        const Frame frame{.captured = octets, .wireLength = wireLength};
        EXPECT_EQ(locateRsvp(LinkType::ethernet, frame, packet), found) << wireLength;
    }
}

} // namespace
} // namespace Packets::Test
