// Which messages are sound, and which check names the fault of the others: case by case at the
// edges, and against a second, plain judge on random payloads.

#include "Support.h"

#include "packets/Checksum.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <set>

namespace Packets::Test {
namespace {

constexpr auto good = Defect::none;
constexpr auto format = Defect::format;
constexpr auto badSum = Defect::checksum;
constexpr auto objects = Defect::objects;

[[nodiscard]] std::vector<Finding> judgeAll(const Octets& payload) {
    std::vector<Finding> findings;
    const bool sound = judgePayload(Family::ipv6, payload, [&findings](const Verdict& verdict) {
        EXPECT_EQ(verdict.family, Family::ipv6);
        findings.push_back({verdict.type, verdict.defect});
    });
    const auto isGood = [](const Finding& finding) { return finding.defect == good; };
    EXPECT_EQ(sound, std::all_of(findings.begin(), findings.end(), isGood));
    return findings;
}

/// A sound PATH with `change` made to it, its checksum set right again afterwards.
[[nodiscard]] Octets changed(const std::function<void(Octets&)>& change) {
    Octets octets = plainMessage();
    change(octets);
    seal(octets);
    return octets;
}

[[nodiscard]] Octets withLength(std::size_t length) {
    return changed([length](Octets& octets) {
        octets[6] = static_cast<std::uint8_t>(length >> 8);
        octets[7] = static_cast<std::uint8_t>(length);
    });
}

[[nodiscard]] Octets spoiled(Octets octets) {
    octets[2] ^= 0x40;
    return octets;
}

[[nodiscard]] Octets unsummed(Octets octets) {
    octets[2] = octets[3] = 0;
    return octets;
}

[[nodiscard]] Octets bundle(std::initializer_list<Octets> parts) {
    return message(MessageType::bundle, concat(parts));
}

TEST(RsvpMessage, EveryTypeAndEveryVersion) {
    const std::set<int> counted{1, 2, 3, 4, 5, 6, 7, 12, 13, 15, 20};
    for (int type = 0; type < 256; ++type) {
        const auto octet = static_cast<std::uint8_t>(type);
        const Octets payload = message(static_cast<MessageType>(octet));
        EXPECT_EQ(judgeAll(payload),
                  (std::vector<Finding>{{octet, counted.contains(type) ? good : format}}));
    }
    for (int version = 0; version < 16; ++version) {
        // The flags in the lower half are no part of the version.
        const auto octet = static_cast<std::uint8_t>(version << 4 | 0x0f);
        const Octets payload = changed([octet](Octets& octets) { octets[0] = octet; });
        EXPECT_EQ(judgeAll(payload), (std::vector<Finding>{{1, version == 1 ? good : format}}))
            << version;
    }
}

struct Case {
    const char* name;
    Octets payload;
    std::vector<Finding> findings;
};

std::ostream& operator<<(std::ostream& out, const Case& row) { return out << row.name; }

class RsvpMessageCases : public testing::TestWithParam<Case> {};

TEST_P(RsvpMessageCases, AreJudgedInOrder) {
    EXPECT_EQ(judgeAll(GetParam().payload), GetParam().findings);
}

[[nodiscard]] std::string nameOf(const testing::TestParamInfo<Case>& info) {
    return info.param.name;
}

const Octets soundPath = plainMessage();
const Octets hello = message(MessageType::hello, object(22, 8));
const std::size_t pathSize = soundPath.size();

INSTANTIATE_TEST_SUITE_P(
    Alone, RsvpMessageCases,
    testing::Values(
        Case{"Sound", soundPath, {{1, good}}}, Case{"NoPayload", {}, {{0, format}}},
        Case{"SevenOctets", Octets(soundPath.begin(), soundPath.begin() + 7), {{0, format}}},
        Case{"HeaderOnly", message(MessageType::resv), {{2, good}}},
        Case{"LengthZero", withLength(0), {{1, format}}},
        Case{"LengthBelowHeader", withLength(4), {{1, format}}},
        Case{"LengthNoMultipleOfFour", withLength(pathSize - 2), {{1, format}}},
        Case{"LengthOverPayload", withLength(pathSize + 4), {{1, format}}},
        Case{"OctetsAfterMessage", concat({soundPath, {1, 2, 3}}), {{1, good}}},
        Case{"SecondMessageAfterFirst", concat({soundPath, spoiled(hello)}), {{1, good}}},
        Case{"ChecksumWrong", spoiled(soundPath), {{1, badSum}}},
        Case{"ChecksumNone", unsummed(soundPath), {{1, good}}},
        Case{"ChecksumCoversLastOctet",
             [] {
                 auto octets = soundPath;
                 octets.back() ^= 1;
                 return octets;
             }(),
             {{1, badSum}}},
        Case{"ChecksumEndsWithMessage", concat({soundPath, {9, 9, 9, 9}}), {{1, good}}},
        Case{"ObjectLengthZero", message(MessageType::path, {0, 0, 5, 1}), {{1, objects}}},
        Case{"ObjectLengthBelowHeader", message(MessageType::path, {0, 3, 5, 1}), {{1, objects}}},
        Case{"ObjectLengthNoMultipleOfFour",
             message(MessageType::path, {0, 6, 5, 1, 0, 0, 0, 0}),
             {{1, objects}}},
        Case{"ObjectBeyondMessage", message(MessageType::path, {0, 8, 5, 1}), {{1, objects}}},
        Case{"ObjectBeyondMessageThoughInPayload",
             concat({message(MessageType::path, {0, 8, 5, 1}), {0, 0, 0, 0}}),
             {{1, objects}}},
        Case{"LastObjectWrong",
             message(MessageType::ack, concat({object(24, 8), {0, 5, 24, 1}})),
             {{13, objects}}},
        Case{"LongObject", message(MessageType::path, object(20, 60000)), {{1, good}}},
        Case{"ObjectsOfAnyClass",
             message(MessageType::path, concat({object(0, 4), object(255, 0)})),
             {{1, good}}},
        Case{"FormatBeforeChecksum",
             spoiled(changed([](Octets& octets) { octets[0] = 0x20; })),
             {{1, format}}},
        Case{"TypeBeforeChecksum", spoiled(message(static_cast<MessageType>(8))), {{8, format}}},
        Case{"TypeBeforeObjects",
             message(static_cast<MessageType>(25), {0, 0, 5, 1}),
             {{25, format}}},
        Case{"ChecksumBeforeObjects",
             spoiled(message(MessageType::path, {0, 0, 5, 1})),
             {{1, badSum}}},
        Case{"NoChecksumThenObjects",
             unsummed(message(MessageType::path, {0, 0, 5, 1})),
             {{1, objects}}}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Bundles, RsvpMessageCases,
    testing::Values(
        Case{"Empty", bundle({}), {{12, good}}},
        Case{"Two", bundle({soundPath, hello}), {{12, good}, {1, good}, {20, good}}},
        Case{"WrongItself", spoiled(bundle({soundPath, hello})), {{12, badSum}}},
        Case{"OctetsAfterBundle", concat({bundle({soundPath}), hello}), {{12, good}, {1, good}}},
        Case{"InnerChecksum",
             bundle({spoiled(soundPath), hello}),
             {{12, good}, {1, badSum}, {20, good}}},
        Case{"InnerWithoutChecksum", bundle({unsummed(soundPath)}), {{12, good}, {1, good}}},
        Case{"InnerObjects",
             bundle({message(MessageType::path, {0, 0, 5, 1}), hello}),
             {{12, good}, {1, objects}, {20, good}}},
        Case{"InnerVersion",
             bundle({changed([](Octets& octets) { octets[0] = 0x30; }), hello}),
             {{12, good}, {1, format}, {20, good}}},
        Case{"InnerTypeUnknown",
             bundle({message(static_cast<MessageType>(21)), hello}),
             {{12, good}, {21, format}, {20, good}}},
        Case{"InnerLengthTooShortEnds", bundle({withLength(4), hello}), {{12, good}, {1, format}}},
        Case{"InnerLengthBeyondEnds",
             bundle({hello, withLength(pathSize + 4)}),
             {{12, good}, {20, good}, {1, format}}},
        Case{"InnerBeyondBundleThoughInPayload",
             concat({bundle({withLength(pathSize + 4)}), {0, 0, 0, 0}}),
             {{12, good}, {1, format}}},
        Case{"InnerLengthNoMultipleOfFourIsSteppedOver",
             bundle({[] {
                         auto octets = withLength(pathSize - 2);
                         octets.resize(pathSize - 2);
                         return octets;
                     }(),
                     hello,
                     {0, 0}}),
             {{12, good}, {1, format}, {20, good}, {0, format}}},
        Case{"HeaderIncompleteEnds",
             bundle({hello, {0x10, 1, 0, 0}}),
             {{12, good}, {20, good}, {0, format}}},
        Case{"NestedIsNotOpened",
             bundle({bundle({soundPath, soundPath}), hello}),
             {{12, good}, {12, format}, {20, good}}},
        Case{"NestedWrongIsStillFormat",
             bundle({spoiled(bundle({soundPath})), hello}),
             {{12, good}, {12, format}, {20, good}}},
        Case{"IntegrityFirst", bundle({object(4, 32), soundPath}), {{12, good}, {1, good}}},
        Case{"IntegrityOnly", bundle({object(4, 32)}), {{12, good}}},
        Case{"IntegrityOnlyBeforeTheFirst",
             bundle({soundPath, object(4, 4)}),
             {{12, good}, {1, good}, {8, format}}},
        Case{"IntegrityBeyondBundle",
             bundle({{0, 36, 4, 1, 0, 0, 0, 0}}),
             {{12, good}, {36, format}}},
        // The first octet of this checksum is 4, INTEGRITY's class number, and what would be the
        // object's length is 0x1014.
        Case{"ChecksumLikeIntegrity",
             bundle({[] {
                         auto octets = hello;
                         octets[2] = 4;
                         return octets;
                     }(),
                     message(MessageType::path, object(20, 5000))}),
             {{12, good}, {20, badSum}, {1, good}}}),
    nameOf);

TEST(RsvpMessage, ChecksumAgreesWithItsDefinition) {
    std::mt19937_64 random(11);
    for (std::size_t length = 0; length <= 65532; length += length < 256 ? 4 : 1028) {
        for (const int pattern : {0, 1, 2}) {
            // All ones make every carry that there can be.
            Octets octets(length, pattern == 0 ? 0xff : 0);
            if (pattern == 2) {
                for (std::uint8_t& octet : octets) {
                    octet = static_cast<std::uint8_t>(random());
                }
            }
            std::uint64_t sum = 0;
            for (std::size_t at = 0; at < length; at += 2) {
                sum += readBe16(octets.data() + at);
            }
            while (sum > 0xffff) {
                sum = (sum & 0xffff) + (sum >> 16);
            }
            const std::uint16_t native = onesComplementSum(octets);
            std::uint8_t asBytes[2];
            std::memcpy(asBytes, &native, 2);
            ASSERT_EQ(readBe16(asBytes), sum) << "length " << length << " pattern " << pattern;
        }
    }
}

/// The rules once more, in indices and plain steps.
class PlainJudge {
  public:
    [[nodiscard]] static std::vector<Finding> judge(const Octets& payload) {
        PlainJudge judge(payload);
        const std::size_t end = judge.one(0, payload.size(), false);
        const Finding outer = judge.findings_.front();
        if (outer == Finding{12, good}) {
            std::size_t at = 8;
            const bool integrity = end >= 12 && payload[8] < 0x10 && payload[10] == 4;
            if (integrity) {
                const std::size_t length = judge.word(8);
                if (length >= 4 && length % 4 == 0 && 8 + length <= end) at += length;
            }
            while (at != end) {
                const std::size_t next = judge.one(at, end, true);
                if (next == at) break;
                at = next;
            }
        }
        return judge.findings_;
    }

  private:
    explicit PlainJudge(const Octets& payload)
        : octets_(payload) {}

    [[nodiscard]] std::size_t word(std::size_t at) const {
        return octets_[at] * 256U + octets_[at + 1];
    }

    /// Judges the message at `at`; returns where the next one begins, or `at` when nobody knows.
    std::size_t one(std::size_t at, std::size_t limit, bool inside) {
        if (limit - at < 8) return found(0, format, at);
        const std::uint8_t type = octets_[at + 1];
        const std::size_t length = word(at + 6);
        const std::size_t end = at + length;
        if (length < 8 || end > limit) return found(type, format, at);
        const bool known = (type >= 1 && type <= 7) || (type == 12 && !inside) || type == 13 ||
                           type == 15 || type == 20;
        if (octets_[at] / 16 != 1 || length % 4 != 0 || !known) return found(type, format, end);
        const Bytes bytes = Bytes(octets_).subspan(at, length);
        // 0xffff stands for zero in one's complement.
        const std::size_t sum = word(at + 2);
        if (sum != 0 && sum % 0xffff != slowChecksum(bytes) % 0xffff)
            return found(type, badSum, end);
        for (std::size_t object = at + 8; type != 12 && object != end; object += word(object)) {
            const std::size_t size = word(object);
            if (size < 4 || size % 4 != 0 || object + size > end) return found(type, objects, end);
        }
        return found(type, good, end);
    }

    std::size_t found(std::uint8_t type, Defect defect, std::size_t next) {
        findings_.push_back({type, defect});
        return next;
    }

    const Octets& octets_;
    std::vector<Finding> findings_;
};

class RandomPayload {
  public:
    explicit RandomPayload(std::uint64_t seed)
        : random_(seed) {}

    [[nodiscard]] Octets next() {
        Octets payload = below(2) == 0 ? someMessage() : someBundle();
        if (below(8) == 0) payload.resize(payload.size() + below(12));
        if (below(8) == 0) payload.resize(below(payload.size() + 1));
        return payload;
    }

  private:
    [[nodiscard]] std::size_t below(std::size_t limit) { return random_() % limit; }

    /// Damages a message now and then; mostly its checksum is made to fit the damage.
    void damage(Octets& octets) {
        while (below(3) == 0) {
            const std::size_t at = below(2) == 0 ? below(8) : below(octets.size());
            constexpr std::uint8_t telling[] = {0, 1, 4, 6, 8, 12, 0x10, 0x20, 0xff};
            octets[at] = telling[below(std::size(telling))];
        }
        if (below(6) != 0) seal(octets);
        if (below(8) == 0) octets = unsummed(octets);
    }

    [[nodiscard]] Octets someMessage() {
        constexpr std::uint8_t types[] = {1, 2, 3, 4, 5, 6, 7, 12, 13, 15, 20, 0, 8, 255};
        Octets body;
        for (std::size_t left = below(4); left != 0; --left) {
            body = concat({body, object(static_cast<std::uint8_t>(below(256)), 4 * below(5))});
        }
        Octets octets = message(static_cast<MessageType>(types[below(std::size(types))]), body);
        damage(octets);
        return octets;
    }

    [[nodiscard]] Octets someBundle() {
        Octets body = below(4) == 0 ? object(4, 4 * below(10)) : Octets{};
        for (std::size_t left = below(5); left != 0; --left) {
            body = concat({body, someMessage()});
        }
        Octets octets = message(MessageType::bundle, body);
        if (below(2) == 0) damage(octets);
        return octets;
    }

    std::mt19937_64 random_;
};

TEST(RsvpMessage, AgreesWithPlainJudgeOnRandomPayloads) {
    const auto seed = static_cast<std::uint64_t>(testing::UnitTest::GetInstance()->random_seed());
    RandomPayload payloads(seed);
    std::map<Finding, int> seen;
    std::size_t longest = 0;
    for (int round = 0; round < 200'000; ++round) {
        const Octets payload = payloads.next();
        const std::vector<Finding> findings = judgeAll(payload);
        ASSERT_EQ(findings, PlainJudge::judge(payload))
            << "round " << round << " of --gtest_random_seed=" << seed;
        for (const Finding& finding : findings) {
            ++seen[finding];
        }
        longest = std::max(longest, findings.size());
    }
    // The rounds reached every judgement of a common type, and bundles of several messages.
    for (const std::uint8_t type : {std::uint8_t{1}, std::uint8_t{20}}) {
        for (const Defect defect : {good, format, badSum, objects}) {
            EXPECT_GT((seen[{type, defect}]), 100) << Finding{type, defect};
        }
    }
    EXPECT_GE(longest, 5U);
}

} // namespace
} // namespace Packets::Test
