// What is read of a message: every object of every C-Type, in any order, cut at any length.

#include "Messages.h"

#include <algorithm>
#include <limits>

namespace State::Test {

[[nodiscard]] Content read(const Octets& octets) {
    Content content;
    content.read(octets);
    return content;
}

TEST(Content, SessionsAndSenders) {
    for (const Kind& kind : kinds) {
        const Octets session = kind.sessionObject(3);
        const Octets first = kind.senderObject(11, 21);
        const Octets second = kind.senderObject(11, 22);
        for (const auto& objects :
             {std::vector{session, first, second}, {first, second, session}}) {
            const Content path = read(message(PATH, objects));
            EXPECT_EQ(path.session, kind.sessionId(3)) << kind.name;
            ASSERT_EQ(path.senders.size(), 1U) << kind.name;
            EXPECT_EQ(path.senders[0].path, kind.pathId(3, 21)) << kind.name;
        }
        const Octets filters[] = {kind.senderObject(10, 21), kind.senderObject(10, 22)};
        const Content resv = read(message(RESVTEAR, {session, shared, filters[0], filters[1]}));
        ASSERT_EQ(resv.senders.size(), 2U) << kind.name;
        EXPECT_EQ(resv.senders[1].path, kind.pathId(3, 22)) << kind.name;
        EXPECT_TRUE(read(message(PATH, {session, filters[0]})).senders.empty());
        EXPECT_TRUE(read(message(RESV, {session, first})).senders.empty());
        EXPECT_TRUE(read(message(PATH, {first})).senders.empty());
    }
    // A sender that is not the extended tunnel ID, and a flow label.
    const Octets other = object(11, 7, concat({address(false, 7), be(4, 21)}));
    EXPECT_EQ(read(message(PATH, {p2p.sessionObject(1), other})).senders.at(0).path,
              Rsvp::RsvpSpId(p2p.sessionId(1), 21, {ip(false, 7), 0}));
    const Octets label = object(11, 3, concat({address(true, 7), be(4, 0x123456)}));
    EXPECT_EQ(read(message(PATH, {kinds[3].sessionObject(1), label})).senders.at(0).path,
              Rsvp::RsvpSpId(kinds[3].sessionId(1), 0x3456, {ip(true, 7), 0x12}));
}

TEST(Content, Bandwidth) {
    const float infinite = std::numeric_limits<float>::infinity();
    const std::pair<float, std::uint64_t> rates[] = {
        {1000.5F, 8004}, {0.0F, 0},  {-5.0F, 0},        {std::nanf(""), 0},
        {1e30F, ~0ULL},  {1e-9F, 0}, {infinite, ~0ULL}, {125e6F, 1'000'000'000}};
    for (const auto& [rate, bits] : rates) {
        const Octets path =
            message(PATH, {p2p.sessionObject(1), traffic(12, rate), p2p.senderObject(11, 1)});
        EXPECT_EQ(read(path).senders.at(0).bandwidth, bits) << rate;
    }
    // Each filter has the FLOWSPEC before it.
    const Octets filter = p2p.senderObject(10, 1);
    const Content resv = read(message(
        RESV, {p2p.sessionObject(1), fixed, traffic(9, 1), filter, filter, traffic(9, 2), filter}));
    EXPECT_EQ(resv.senders.at(1).bandwidth, 8U);
    EXPECT_EQ(resv.senders.at(2).bandwidth, 16U);
    EXPECT_EQ(read(message(RESV, {p2p.sessionObject(1), wildcard, traffic(9, 3)})).bandwidth, 24U);
}

TEST(Content, RecordedRoute) {
    const auto hopOf = [](std::uint8_t cType, const Octets& body) {
        return read(message(PATH, {p2p.sessionObject(1), object(21, cType, body),
                                   p2p.senderObject(11, 1)}))
            .senders.at(0)
            .recorded;
    };
    const Octets v4 = concat({{1, 8}, address(false, 5), {32, 9}});
    const Octets v6 = concat({{2, 20}, address(true, 5), {128, 3}});
    const Octets unnumbered = concat({{4, 12, 2, 0}, address(false, 6), be(4, 1)});
    const Octets label = {3, 8, 1, 1, 0, 0, 1, 0};
    const struct {
        Octets body;
        Wirra::IpGenAddr address;
        std::uint8_t flags;
    } rows[] = {{v4, ip(false, 5), 9},
                {concat({v6, v4}), ip(true, 5), 3},
                {concat({label, unnumbered, v4}), ip(false, 6), 2},
                {concat({{9, 2}, label, v6}), ip(true, 5), 3},
                {{}, {}, 0},
                {label, {}, 0},
                {concat({{1, 0, 0, 0}, v4}), {}, 0},
                {concat({{1, 6, 1, 2, 3, 4}, v4, {0, 0}}), ip(false, 5), 9},
                {{1, 200, 10, 0, 0, 5, 32, 9}, {}, 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(hopOf(1, row.body).address, row.address) << &row - rows;
        EXPECT_EQ(hopOf(1, row.body).flags, row.flags) << &row - rows;
        EXPECT_EQ(hopOf(2, row.body).flags, 0) << &row - rows;
    }
    const Octets twice = message(PATH, {p2p.sessionObject(1), recorded(7, 1), traffic(12, 5),
                                        p2p.senderObject(11, 1), recorded(8, 2), traffic(12, 6)});
    EXPECT_EQ(read(twice).senders.at(0).recorded.flags, 1);
    EXPECT_EQ(read(twice).senders.at(0).bandwidth, 40U);
    // In a RESV each filter has the route after it.
    const Octets filter = p2p.senderObject(10, 1);
    const Content resv =
        read(message(RESV, {p2p.sessionObject(1), shared, filter, object(21, 1, v4), filter}));
    EXPECT_EQ(resv.senders.at(0).recorded.flags, 9);
    EXPECT_EQ(resv.senders.at(1).recorded.flags, 0);
}

TEST(Content, ErrorsTimesAndMessageIds) {
    const Octets errorV6 = object(6, 2, concat({address(true, 9), {4, 24}, be(2, 5)}));
    for (const Octets& spec :
         {object(6, 3, concat({address(false, 9), {4, 24}, be(2, 5), be(4, 0)})), errorV6}) {
        const Content content = read(message(PATHERR, {spec, error(1, 2)}));
        EXPECT_EQ(content.error.value().error, Rsvp::RsvpError(24, 5));
        EXPECT_EQ(content.error->node, ip(spec == errorV6, 9));
    }
    const Content content =
        read(message(HELLO, {times(45000), hop(4), messageId(23, 7), messageId(23, 8),
                             messageId(24, 9), messageId(24, 10, 2), messageId(24, 11)}));
    EXPECT_EQ(content.refreshPeriod, 45000U);
    EXPECT_EQ(content.hop, ip(false, 4));
    ASSERT_TRUE(content.messageId);
    EXPECT_EQ(content.messageId->flags, 1);
    EXPECT_EQ(content.messageId->epoch, 0x2aU);
    EXPECT_EQ(content.messageId->number, 7U);
    ASSERT_EQ(content.acknowledged.size(), 2U); // not what was refused
    EXPECT_EQ(content.acknowledged[1].number, 11U);
    // Lists: the number comes first, then the addresses of C-Types 2 to 5.
    const std::size_t entries[] = {0, 4, 8, 20, 12, 36, 0};
    for (std::uint8_t cType = 0; cType < std::size(entries); ++cType) {
        Octets body = be(4, 0x0100002a);
        for (std::uint32_t id = 1; id <= 3 && entries[cType] != 0; ++id) {
            body = concat({body, be(4, id), Octets(entries[cType] - 4, 0xee)});
        }
        const Content list = read(message(SREFRESH, {object(25, cType, body)}));
        ASSERT_EQ(list.listed.size(), entries[cType] == 0 ? 0U : 3U) << int{cType};
        for (const MessageId& id : list.listed) {
            EXPECT_EQ(id.epoch, 0x2aU);
            EXPECT_EQ(id.number, 1 + &id - list.listed.data());
        }
    }
}

/// Objects cut short are passed over; those around them are read. Each message is a heap block of
/// exactly its size, for an address checker to see.
TEST(Content, CutObjectsArePassedOver) {
    for (const Kind& kind : kinds) {
        const Octets objects[] = {kind.sessionObject(1), kind.senderObject(11, 1), hop(1),
                                  error(1, 2),           traffic(12, 5),           times(1000),
                                  messageId(23, 1)};
        for (const Octets& whole : objects) {
            for (std::size_t size = 0; size <= whole.size() - 4; size += 4) {
                const Octets body(whole.begin() + 4, whole.begin() + 4 + std::ptrdiff_t(size));
                const Octets cut = object(whole[2], whole[3], body);
                const Octets session = whole[2] == 1 ? Octets() : kind.sessionObject(1);
                const Content content = read(message(PATH, {session, messageId(24, 3), cut}));
                EXPECT_EQ(content.acknowledged.size(), 1U);
                const bool isRead = (whole[2] == 1 && content.session) ||
                                    content.hop.family() != 0 || content.error ||
                                    content.bandwidth != 0 || content.messageId ||
                                    content.refreshPeriod != 0 || !content.senders.empty();
                const bool isShort = size < (whole[2] == 12 ? 16 : whole.size() - 4);
                EXPECT_EQ(isRead, !isShort) << int{whole[2]} << " of " << size;
            }
            for (const std::size_t unknown : {0U, 5U, 11U, 15U, 255U}) {
                Octets odd = whole;
                odd[3] = static_cast<std::uint8_t>(unknown);
                const Content content = read(message(PATH, {odd, kind.sessionObject(1)}));
                EXPECT_EQ(content.session, kind.sessionId(1));
                EXPECT_TRUE(content.senders.empty() && !content.error && !content.messageId);
            }
        }
    }
}

} // namespace State::Test
