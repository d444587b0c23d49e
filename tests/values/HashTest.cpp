// Key hashes: equal to the second implementation, and good in every bit. A weak bit shows as long
// chains only in tables that happen to use it, so every input bit is measured.

#include "ValueSupport.h"

#include "Mox/Hash.h"
#include "Rsvp/ErrorCounter.h"
#include "Rsvp/MessageCounter.h"
#include "Rsvp/RsvpSpId.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

namespace {

using Rsvp::P2mpSubGroupId;
using Rsvp::RsvpSessionId;
using Rsvp::RsvpSpId;
using Rsvp::Vesk::ErrorCounterKey;
using Rsvp::Vesk::MessageCounterKey;
using ValueSupport::address;

struct IntfGolden {
    std::uint64_t raw;
    std::uint32_t hash;
};
struct MessageKeyGolden {
    std::uint32_t seed;
    std::uint64_t raw;
    std::uint32_t mType;
    std::uint32_t hash;
};
struct ErrorKeyGolden {
    std::uint32_t seed;
    std::uint32_t number;
    std::uint32_t hash;
};
struct SessionText {
    std::uint8_t type;
    const char* destination;
    std::uint16_t tunnelId;
    const char* extendedTunnelId;

    RsvpSessionId value() const {
        return {type, address(destination), tunnelId, address(extendedTunnelId)};
    }
};
struct SessionGolden {
    std::uint32_t seed;
    SessionText session;
    std::uint32_t hash;
};
struct SubGroupGolden {
    std::uint32_t seed;
    const char* originator;
    std::uint16_t number;
    std::uint32_t hash;
};
struct SpGolden {
    SessionText session;
    std::uint32_t lspId;
    const char* originator;
    std::uint16_t subGroup;
    std::uint32_t hash;
};

#include "hashGolden.inc"

TEST(Hash, EqualsTheSecondImplementation) {
    for (const IntfGolden& golden : kIntfGolden) {
        EXPECT_EQ(Wirra::IntfId(golden.raw).hash(), golden.hash) << std::hex << golden.raw;
    }
    for (const MessageKeyGolden& golden : kMessageKeyGolden) {
        const MessageCounterKey key(Wirra::IntfId(golden.raw),
                                    static_cast<Rsvp::RsvpMsgType>(golden.mType));
        EXPECT_EQ(key.hash(golden.seed), golden.hash) << key << " seed " << golden.seed;
    }
    for (const ErrorKeyGolden& golden : kErrorKeyGolden) {
        const ErrorCounterKey key(Rsvp::RsvpErrorTypeInstance(golden.number));
        EXPECT_EQ(key.hash(golden.seed), golden.hash) << key << " seed " << golden.seed;
    }
    for (const SessionGolden& golden : kSessionGolden) {
        const RsvpSessionId session = golden.session.value();
        EXPECT_EQ(session.hash(golden.seed), golden.hash) << session << " seed " << golden.seed;
    }
    for (const SubGroupGolden& golden : kSubGroupGolden) {
        const P2mpSubGroupId group(address(golden.originator), golden.number);
        EXPECT_EQ(group.hash(golden.seed), golden.hash) << group << " seed " << golden.seed;
    }
    for (const SpGolden& golden : kSpGolden) {
        const RsvpSessionId session = golden.session.value();
        const RsvpSpId spId =
            golden.originator == nullptr
                ? RsvpSpId(session, golden.lspId)
                : RsvpSpId(session, golden.lspId,
                           P2mpSubGroupId(address(golden.originator), golden.subGroup));
        EXPECT_EQ(spId.hash(), golden.hash) << spId;
    }
}

/// A hash over the bytes that are its input, the seed included.
struct Subject {
    const char* name;
    std::size_t bytes;
    std::function<std::uint32_t(const std::byte*)> hash;
};

std::uint32_t u32At(const std::byte* bytes) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <class T>
T valueFrom(const std::byte* image, std::size_t bytes, T value) {
    std::memcpy(static_cast<void*>(&value), image, bytes);
    return value;
}

const std::vector<Subject>& subjects() {
    static const std::vector<Subject> all = {
        {"IntfId", 8, [](const std::byte* in) { return valueFrom(in, 8, Wirra::IntfId()).hash(); }},
        {"MessageCounterKey", 16,
         [](const std::byte* in) {
             return valueFrom(in + 4, 12, MessageCounterKey()).hash(u32At(in));
         }},
        {"ErrorCounterKey", 5,
         [](const std::byte* in) {
             return valueFrom(in + 4, 1, ErrorCounterKey()).hash(u32At(in));
         }},
        {"RsvpSessionId", 41,
         [](const std::byte* in) {
             return valueFrom(in + 4, 37, RsvpSessionId()).hash(u32At(in));
         }},
        {"P2mpSubGroupId", 23,
         [](const std::byte* in) {
             const auto originator = valueFrom(in + 4, 17, Wirra::IpGenAddr());
             std::uint16_t number = 0;
             std::memcpy(&number, in + 21, sizeof number);
             return P2mpSubGroupId(originator, number).hash(u32At(in));
         }},
        {"RsvpSpId", 41,
         [](const std::byte* in) {
             return RsvpSpId(valueFrom(in + 4, 37, RsvpSessionId()), u32At(in)).hash();
         }},
        {"RsvpSpId, sub-group", 19,
         [](const std::byte* in) {
             const auto originator = valueFrom(in, 17, Wirra::IpGenAddr());
             std::uint16_t number = 0;
             std::memcpy(&number, in + 17, sizeof number);
             return RsvpSpId(RsvpSessionId(), 1, P2mpSubGroupId(originator, number)).hash();
         }},
    };
    return all;
}

TEST(Hash, EveryInputBitReachesEveryOutputBit) {
    constexpr int kSamples = 4096;
    // Six standard deviations of a fair coin: none of the tens of thousands of cells gets there.
    const double tolerance = 6 * 0.5 / std::sqrt(kSamples);
    for (const Subject& subject : subjects()) {
        ValueSupport::Random random(20250701);
        for (std::size_t bit = 0; bit < 8 * subject.bytes; ++bit) {
            std::array<int, 32> flips{};
            for (int sample = 0; sample < kSamples; ++sample) {
                std::vector<std::byte> input(subject.bytes);
                for (std::byte& byte : input) {
                    byte = static_cast<std::byte>(random.below(256));
                }
                const std::uint32_t before = subject.hash(input.data());
                input[bit / 8] ^= static_cast<std::byte>(1U << bit % 8);
                const std::uint32_t changed = before ^ subject.hash(input.data());
                for (unsigned out = 0; out < 32; ++out) {
                    flips[out] += static_cast<int>(changed >> out & 1U);
                }
            }
            for (unsigned out = 0; out < 32; ++out) {
                EXPECT_NEAR(static_cast<double>(flips[out]) / kSamples, 0.5, tolerance)
                    << subject.name << " input bit " << bit << " output bit " << out;
            }
        }
    }
}

/// Keys as networks have them: numbers that count up, addresses with most bytes equal.
struct Population {
    const char* name;
    std::function<std::uint32_t(std::uint32_t seed, std::uint32_t index)> hash;
};

std::array<std::uint8_t, 4> hostBytes(std::uint32_t index) {
    return {10, 0, static_cast<std::uint8_t>(index >> 8U), static_cast<std::uint8_t>(index)};
}

std::uint32_t seeded(std::uint32_t seed, std::uint32_t objectHash) {
    Mox::Hash hash(seed);
    hash.hashMix<4>(&objectHash);
    return hash.result();
}

std::vector<Population> populations() {
    const auto session = [](const Wirra::IpGenAddr& destination, std::uint32_t tunnelId,
                            const Wirra::IpGenAddr& extendedTunnelId) {
        return RsvpSessionId(7, destination, static_cast<std::uint16_t>(tunnelId),
                             extendedTunnelId);
    };
    const auto ipv4 = [](std::uint32_t index) { return Wirra::IpGenAddr::ipv4(hostBytes(index)); };
    const auto ipv6 = [](std::uint32_t index) {
        std::array<std::uint8_t, 16> bytes = {0x20, 0x01, 0x0D, 0xB8};
        bytes[14] = static_cast<std::uint8_t>(index >> 8U);
        bytes[15] = static_cast<std::uint8_t>(index);
        return Wirra::IpGenAddr::ipv6(bytes);
    };
    return {
        {"interfaces in sequence",
         [](std::uint32_t seed, std::uint32_t index) {
             return MessageCounterKey(Wirra::IntfId(index / 16),
                                      static_cast<Rsvp::RsvpMsgType>(index % 16))
                 .hash(seed);
         }},
        {"interfaces in the upper half",
         [](std::uint32_t seed, std::uint32_t index) {
             return MessageCounterKey(Wirra::IntfId(std::uint64_t{index} << 47U), Rsvp::rsvpPathMsg)
                 .hash(seed);
         }},
        {"IPv4 sessions by tunnel",
         [=](std::uint32_t seed, std::uint32_t index) {
             return seeded(seed, session(ipv4(1), index, ipv4(2)).hash(0));
         }},
        {"IPv4 sessions by end points",
         [=](std::uint32_t seed, std::uint32_t index) {
             return seeded(seed, session(ipv4(index / 128), 1, ipv4(index % 128)).hash(0));
         }},
        {"IPv6 sessions by end points",
         [=](std::uint32_t seed, std::uint32_t index) {
             return seeded(seed, session(ipv6(index / 128), 1, ipv6(index % 128)).hash(0));
         }},
        {"state paths by LSP",
         [=](std::uint32_t seed, std::uint32_t index) {
             return seeded(seed, RsvpSpId(session(ipv4(1), index / 4, ipv4(2)), index % 4).hash());
         }},
        {"state paths by sub-group",
         [=](std::uint32_t seed, std::uint32_t index) {
             const P2mpSubGroupId group(ipv4(index / 64), static_cast<std::uint16_t>(index % 64));
             return seeded(seed, RsvpSpId(session(ipv4(1), 1, ipv4(2)), 1, group).hash());
         }},
    };
}

TEST(Hash, KeysOfANetworkSpreadOverTheBucketsLikeRandomOnes) {
    // As many keys as buckets. Of m buckets about m / e stay empty, with a standard deviation of
    // sqrt(m * (1 / e - 2 / e^2)); a weak low bit doubles what stays empty.
    constexpr std::uint32_t kBuckets = 8192;
    const double expected = kBuckets * std::exp(-1.0);
    const double deviation = std::sqrt(kBuckets * (std::exp(-1.0) - 2 * std::exp(-2.0)));
    for (const Population& population : populations()) {
        for (const std::uint32_t seed : {0U, 1U, 0x6B8B4567U}) {
            std::vector<unsigned> chains(kBuckets);
            for (std::uint32_t index = 0; index < kBuckets; ++index) {
                ++chains[population.hash(seed, index) % kBuckets];
            }
            const auto empty = std::count(chains.begin(), chains.end(), 0U);
            EXPECT_NEAR(static_cast<double>(empty), expected, 5 * deviation)
                << population.name << " seed " << seed;
            // Twelve in one bucket has a chance of about one in a hundred thousand.
            EXPECT_LT(*std::max_element(chains.begin(), chains.end()), 12U)
                << population.name << " seed " << seed;
        }
    }
}

} // namespace
