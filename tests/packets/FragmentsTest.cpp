// RSVP in IP fragments: put together whatever their order, never counted unless whole, and within
// bounds.

#include "Support.h"

#include <algorithm>
#include <random>

namespace Packets::Test {

constexpr std::int64_t second = 1'000'000'000;

/// One IP packet to be sent in pieces.
struct Datagram {
    bool ipv6 = false;
    std::size_t identification = 0;
    Octets payload;
    std::uint8_t nextHeader = 46;

    /// The octets [begin, begin + size) of the payload as an IP packet.
    [[nodiscard]] Octets piece(std::size_t begin, std::size_t size, bool more) const {
        const Octets octets(payload.begin() + static_cast<std::ptrdiff_t>(begin),
                            payload.begin() + static_cast<std::ptrdiff_t>(begin + size));
        if (ipv6) {
            const Octets place = be16(begin | (more ? 1U : 0U));
            return concat({{0x60, 0, 0, 0},
                           be16(8 + size),
                           {44, 64},
                           Octets(16, 0x20),
                           Octets(16, 0x21),
                           {nextHeader, 0},
                           place,
                           {0, 0},
                           be16(identification),
                           octets});
        }
        const Octets place = be16(begin / 8 | (more ? 0x2000U : 0U));
        return concat({{0x45, 0},
                       be16(20 + size),
                       be16(identification),
                       place,
                       {64, nextHeader, 0, 0},
                       Octets(4, 0x20),
                       Octets(4, 0x21),
                       octets});
    }
    /// All of it, in pieces of at most `step` octets, a multiple of 8.
    [[nodiscard]] std::vector<Octets> pieces(std::size_t step) const {
        std::vector<Octets> all;
        for (std::size_t at = 0; at < payload.size(); at += step) {
            const std::size_t size = std::min(step, payload.size() - at);
            all.push_back(piece(at, size, at + size < payload.size()));
        }
        return all;
    }
};

/// Decodes packets one after the other, and keeps what was found in them.
struct Stream {
    std::string feed(const Octets& packet, std::int64_t time = 0, std::uint32_t interface = 0) {
        CaptureRecord record =
            recordOf(LinkType::rawIp, {.captured = packet, .wireLength = packet.size()});
        record.timestamp = time;
        record.interface = interface;
        Recorder recorder;
        const Outcome outcome = decoder.decode(record, recorder);
        EXPECT_EQ(outcome == Outcome::ignored, recorder.findings.empty());
        return recorder.findings;
    }
    std::string feedAll(const std::vector<Octets>& packets) {
        std::string all;
        for (const Octets& packet : packets) {
            all += feed(packet);
        }
        return all;
    }

    FrameDecoder decoder{noKeys};
};

class Fragments : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(Family, Fragments, testing::Bool(),
                         [](const auto& family) { return family.param ? "ipv6" : "ipv4"; });

TEST_P(Fragments, AreCountedWhenAllAreThereWhateverTheirOrder) {
    std::mt19937 random(7);
    const auto below = [&random](std::size_t n) { return random() % n; };
    std::size_t complete = 0;
    Stream stream;
    for (std::size_t round = 0; round < 300; ++round) {
        // A few datagrams at once, all of whose fragments are mixed; some come twice, some never.
        std::vector<std::pair<std::size_t, Octets>> packets;
        std::vector<std::size_t> missing(1 + below(4));
        for (std::size_t which = 0; which < missing.size(); ++which) {
            const Datagram datagram{GetParam(), round * 8 + which,
                                    message(1, object(std::uint8_t(which), 100 + 4 * below(400)))};
            for (const Octets& piece : datagram.pieces(8 * (1 + below(12)))) {
                const std::size_t copies = below(20) == 0 ? 0 : below(10) == 0 ? 2 : 1;
                missing[which] += copies == 0 ? 1 : 0;
                packets.insert(packets.end(), copies, {which, piece});
            }
        }
        std::shuffle(packets.begin(), packets.end(), random);
        std::vector<std::size_t> found(missing.size());
        for (const auto& [which, packet] : packets) {
            const std::string findings = stream.feed(packet);
            if (findings.empty()) continue;
            EXPECT_EQ(findings, ", 1 good");
            ++found[which];
        }
        for (std::size_t which = 0; which < missing.size(); ++which) {
            EXPECT_EQ(found[which], missing[which] == 0 ? 1U : 0U) << "round " << round;
            complete += found[which];
        }
    }
    EXPECT_GT(complete, 100U);
}

TEST_P(Fragments, ThatContradictEachOtherAreGivenUp) {
    const Datagram whole{GetParam(), 1, message(1, object(3, 188))};
    Datagram other = whole;
    other.payload[20] ^= 1U;
    const std::vector<Octets> pieces = whole.pieces(64); // 64, 64, 64, 8
    const std::vector<std::vector<Octets>> contradictions = {
        {whole.piece(32, 64, true)},                              // overlaps two of them
        {other.piece(0, 64, true)},                               // another one in the same place
        {whole.piece(0, 100, true)},                              // not a multiple of 8
        {whole.piece(128, 64, false), whole.piece(192, 8, true)}, // beyond the end
        {whole.piece(128, 64, false)},                            // another end
    };
    for (const auto& contradiction : contradictions) {
        for (const std::size_t at : {1U, 3U}) {
            if (at == 1 && &contradiction == &contradictions.back()) continue; // would be whole
            Stream stream;
            std::vector<Octets> packets = pieces;
            packets.insert(packets.begin() + static_cast<std::ptrdiff_t>(at), contradiction.begin(),
                           contradiction.end());
            EXPECT_EQ(stream.feedAll(packets), "");
            // Nor does a second try complete it, until it is forgotten.
            EXPECT_EQ(stream.feedAll(pieces), "");
            std::string later;
            for (const Octets& piece : pieces) {
                later += stream.feed(piece, 100 * second);
            }
            EXPECT_EQ(later, ", 1 good");
        }
    }
    Stream stream;
    // Beyond what a packet may hold.
    Datagram giant{GetParam(), 2, Octets(65'600, 0)};
    EXPECT_EQ(stream.feedAll({giant.piece(65'528, 64, false), giant.piece(0, 8, true)}), "");
    EXPECT_EQ(stream.feedAll({whole.piece(0, 0, true), whole.piece(8, 0, false)}), "");
}

TEST_P(Fragments, BelongTogetherByAddressIdentificationAndInterfaceForATime) {
    const Datagram whole{GetParam(), 1, path};
    const Octets first = whole.piece(0, 24, true);
    const Octets last = whole.piece(24, path.size() - 24, false);
    Stream stream;
    EXPECT_EQ(stream.feed(first, 0, 1), "");
    EXPECT_EQ(stream.feed(last, 0, 2), "");
    EXPECT_EQ(stream.feed(last, 60 * second, 1), ", 1 good");
    EXPECT_EQ(stream.feed(first, 61 * second, 2), "") << "forgotten";
    Octets elsewhere = last;
    elsewhere[GetParam() ? 8 : 12] ^= 1U;
    EXPECT_EQ(stream.feed(elsewhere, 61 * second, 2), "");
    EXPECT_EQ(stream.feed(last, 0, 2), "") << "a capture out of order";
    // Never more than so many at once: the oldest makes room.
    for (std::size_t i = 0; i <= Reassembler::maxDatagrams; ++i) {
        Datagram many = whole;
        many.identification = 100 + i;
        stream.feed(many.piece(0, 24, true), std::int64_t(200 + i / 8) * second);
    }
    Datagram oldest = whole;
    oldest.identification = 101;
    EXPECT_EQ(stream.feed(oldest.piece(24, path.size() - 24, false), 201 * second), ", 1 good");
    oldest.identification = 100;
    EXPECT_EQ(stream.feed(oldest.piece(24, path.size() - 24, false), 201 * second), "");
}

TEST(Fragments, MayHoldExtensionHeadersAndOtherProtocols) {
    const Octets options = {46, 0, 1, 4, 0, 0, 0, 0};
    Stream stream;
    const Datagram behind{true, 1, concat({options, path}), 60};
    EXPECT_EQ(stream.feedAll(behind.pieces(16)), ", 1 good");
    for (const Octets& bad : {Octets{17, 0, 1, 4, 0, 0, 0, 0}, Octets{46, 255, 1, 4, 0, 0, 0, 0}}) {
        const Datagram none{true, 2, concat({bad, path}), 60};
        EXPECT_EQ(stream.feedAll(none.pieces(16)), "");
    }
    const Datagram udp{false, 3, path, 17};
    EXPECT_EQ(stream.feedAll(udp.pieces(16)), "");
    const Datagram wrong{false, 4, with(path, 0, 0x20)};
    EXPECT_EQ(stream.feedAll(wrong.pieces(16)), ", 1 format");
}

} // namespace Packets::Test
