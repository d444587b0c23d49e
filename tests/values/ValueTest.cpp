// The bytes, order and hashes of stored values. Files show the bytes to other processes and builds
// and may hold any others, so each of them is written always and looked at only in fields.

#include "Rsvp/ErrorCounter.h"
#include "Rsvp/MessageCounter.h"
#include "Rsvp/RsvpCliId.h"
#include "Rsvp/RsvpSessionHistoryEntry.h"
#include "Rsvp/RsvpSpBwState.h"
#include "Rsvp/RsvpSpHistoryEntry.h"
#include "Rsvp/RsvpSpId.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <tuple>

namespace {

using Mox::strepToValue;
using namespace Rsvp;
using namespace Rsvp::Vesk;
using Wirra::IntfId;
using Wirra::IpGenAddr;

/// `make` builds the value in memory full of 0xAA; blanks in `wanted` are for the eye.
template <class T>
void checkImage(
    std::string wanted, T (*make)() = [] { return T(); }) {
    alignas(8) std::array<unsigned char, 192> room;
    room.fill(0xAA);
    // Volatile, so that the filling is not taken for dead stores.
    void* volatile at = room.data();
    ::new (at) T(make());
    std::string found;
    for (std::size_t byte = 0; byte <= sizeof(T); ++byte) {
        found += fmt::format("{:02x}", room[byte]);
    }
    std::erase(wanted, ' ');
    EXPECT_EQ(found, wanted + "aa");
}

RsvpSpId spId(std::uint8_t type, const char* to, std::uint16_t tunnel, const char* extended,
              std::uint32_t lsp) {
    return {{type, strepToValue<IpGenAddr>(to), tunnel, strepToValue<IpGenAddr>(extended)}, lsp};
}
RsvpSpId withGroup(const RsvpSpId& spId, const char* originator, std::uint16_t number) {
    return {spId.sessionId(), spId.lspId(), {strepToValue<IpGenAddr>(originator), number}};
}

TEST(Value, EveryByteIsDetermined) {
    const std::string zeros(80, '0');
    checkImage<MessageCounter>("ffffffff00000000 00000000 00000000 00000000 00000000");
    checkImage<ErrorCounter>("00 000000 00000000");
    checkImage<RsvpSpId>(zeros + "00000100" + zeros.substr(0, 48));
    checkImage<RsvpCliId>("40420f00");
    const std::string noSession = zeros.substr(0, 76) + "0000";
    checkImage<RsvpSessionHistoryEntry>(noSession + "00000000" + "00000000" + zeros.substr(0, 16) +
                                        "00000000 40420f00" + zeros.substr(0, 16));
    const std::string noBwState =
        "00000000 00010000 00000000 00000000" + zeros.substr(0, 16) + "ffffffff00000000";
    const std::string noSpEntry = zeros + "00000100" + zeros.substr(0, 48) + "00000000" +
                                  zeros.substr(0, 16) + "00000000" + zeros + "00000000" +
                                  "000100000000"
                                  "0000" +
                                  noBwState;
    checkImage<RsvpSpHistoryEntry>(noSpEntry);
    checkImage<RsvpSpBwState>(
        "00 000000 00010000 0000 0000 00000000 0000000000000000 ffffffff00000000");

    checkImage<MessageCounter>("efcdab8967452301 14000000 00000000 d4c3b2a1 00000000", [] {
        return MessageCounter({IntfId(0x0123456789ABCDEF), rsvpHelloMsg}, 0xA1B2C3D4);
    });
    checkImage<ErrorCounter>("0f 000000 d4c3b2a1", [] {
        return ErrorCounter(ErrorCounterKey(invalidSeqNoErrorType), 0xA1B2C3D4);
    });
    const std::string session = "08 20010db8000000000000000000000001 02 3412"
                                "0a000002000000000000000000000000 01 00";
    checkImage<RsvpSpId>(session + "0000 07000000" + zeros.substr(0, 48),
                         [] { return spId(8, "2001:db8::1", 0x1234, "10.0.0.2", 7); });
    checkImage<RsvpSpId>(
        session + "0000 07000000 0a000009000000000000000000000000 01 00 7856 01 000000", [] {
            return withGroup(spId(8, "2001:db8::1", 0x1234, "10.0.0.2", 7), "10.0.0.9", 0x5678);
        });
    checkImage<RsvpSpBwState>(
        "03 000000 01000000 0200 0000 00000000 0807060504030201 0900000000000000", [] {
            return RsvpSpBwState(rsvpSpRejectedBwAdmission, RsvpError(1, 2), 0x0102030405060708,
                                 IntfId(9));
        });
}

/// Each value comes before all that follow.
template <class T>
void checkAscending(std::initializer_list<T> values) {
    for (const T& left : values) {
        for (const T& right : values) {
            EXPECT_EQ(left < right, &left < &right) << left << "\n" << right;
            EXPECT_EQ(left == right, &left == &right) << left << "\n" << right;
        }
    }
}

TEST(Value, Order) {
    const auto key = [](std::uint64_t interface, unsigned number) {
        return MessageCounterKey(IntfId(interface), static_cast<RsvpMsgType>(number));
    };
    constexpr std::uint64_t kHalf = std::uint64_t{1} << 63U;
    checkAscending({key(1, 0), key(1, 3), key(1, 0x80000000U), key(256, 1), key(kHalf, 0)});
    const RsvpSpId first = spId(7, "10.0.0.1", 5, "10.0.0.2", 3);
    checkAscending({first, withGroup(first, "none", 1), withGroup(first, "none", 256),
                    withGroup(first, "10.0.0.1", 0), spId(7, "10.0.0.1", 5, "10.0.0.2", 256),
                    spId(7, "10.0.0.1", 5, "10.0.1.1", 1), spId(7, "10.0.0.1", 5, "::", 1),
                    spId(7, "10.0.0.1", 256, "none", 1), spId(7, "10.0.1.0", 5, "none", 1),
                    spId(7, "::1", 5, "none", 1), spId(8, "none", 5, "none", 1)});
}

// What the bytes of the types are: 'x' a field, '0' and '1' a presence, '.' anything.
const std::string kMessageKey = "xxxxxxxxxxxx....";
const std::string kSession = std::string(37, 'x') + ".";
const std::string kPlainSp = kSession + "..xxxx" + std::string(20, '.') + "0...";
const std::string kGroup = std::string(17, 'x') + ".xx";
const std::string kGroupSp = kSession + "..xxxx" + kGroup + "1...";

/// A value as a file may hold it.
template <class T>
struct Image {
    alignas(T) std::array<std::uint8_t, sizeof(T)> bytes{};
    const T& value() const { return *reinterpret_cast<const T*>(bytes.data()); }
};

std::uint32_t hashOf(const IntfId& value, std::uint32_t) { return value.hash(); }
std::uint32_t hashOf(const RsvpSpId& value, std::uint32_t) { return value.hash(); }
std::uint32_t hashOf(const auto& value, std::uint32_t seed) { return value.hash(seed); }

/// Fields of any bytes; with `garbage` in all that is no field.
template <class T>
Image<T> makeImage(const std::string& fields, std::mt19937& random, std::uint8_t garbage = 0) {
    Image<T> image;
    for (std::size_t at = 0; at < sizeof(T); ++at) {
        const char kind = fields[at];
        image.bytes[at] = kind == '.' ? garbage : static_cast<std::uint8_t>(kind - '0');
        if (kind == 'x') image.bytes[at] = static_cast<std::uint8_t>(random());
    }
    return image;
}

template <class T>
void checkFields(const std::string& fields) {
    std::mt19937 random(7);
    ASSERT_EQ(fields.size(), sizeof(T));
    for (std::size_t at = 0; at < sizeof(T); ++at) {
        Image<T> image = makeImage<T>(fields, random);
        const T clean(image.value());
        image.bytes[at] ^= 0x80;
        const bool isField = fields[at] == 'x' || fields[at] == '0';
        EXPECT_EQ(image.value() == clean, !isField) << at;
        if constexpr (requires { clean < clean; }) {
            EXPECT_EQ(image.value() < clean || clean < image.value(), isField) << at;
            EXPECT_EQ(hashOf(image.value(), 77) == hashOf(clean, 77), !isField) << at;
        }
    }
}

TEST(Value, CopiesOfStatePathsLeaveGarbageBehind) {
    std::mt19937 random(11);
    std::mt19937 same(11);
    const auto clean = makeImage<RsvpSpId>(kPlainSp, random);
    auto dirty = makeImage<RsvpSpId>(kPlainSp, same, 0xAA);
    dirty.bytes[37] = 0; // of the session, which is copied as it is
    const auto group = makeImage<RsvpSpId>(kGroupSp, random);
    RsvpSpId assigned(group.value());
    EXPECT_EQ(std::memcmp(static_cast<const void*>(&assigned), &group, sizeof group), 0);
    assigned = dirty.value();
    const RsvpSpId copied(dirty.value());
    EXPECT_EQ(std::memcmp(static_cast<const void*>(&assigned), &clean, sizeof clean), 0);
    EXPECT_EQ(std::memcmp(static_cast<const void*>(&copied), &clean, sizeof clean), 0);
}

template <class T>
std::uint32_t hashOfText(std::uint32_t seed, const char* text) {
    return hashOf(strepToValue<T>(text), seed);
}

TEST(Hash, EqualsTheGoldenVectors) {
    using Hash = std::uint32_t (*)(std::uint32_t, const char*);
    const std::tuple<Hash, std::uint32_t, const char*, std::uint32_t> golden[] = {
#include "hashGolden.inc"
    };
    for (const auto& [hash, seed, text, wanted] : golden) {
        EXPECT_EQ(hash(seed, text), wanted) << "seed " << seed << " " << text;
    }
}

/// A weak bit shows as long chains only in tables that happen to use it, so every bit of the
/// fields is measured.
template <class T>
void checkKey(const std::string& fields) {
    checkFields<T>(fields);
    constexpr int kSamples = 4096;
    // Six standard deviations of a fair coin: none of the tens of thousands of cells gets there.
    const double tolerance = 6 * 0.5 * std::sqrt(kSamples);
    std::mt19937 random(20250701);
    for (std::size_t bit = 0; bit < 8 * sizeof(T); ++bit) {
        if (fields[bit / 8] != 'x') continue;
        std::array<int, 32> flips{};
        for (int sample = 0; sample < kSamples; ++sample) {
            Image<T> image = makeImage<T>(fields, random);
            const auto seed = static_cast<std::uint32_t>(random());
            const std::uint32_t before = hashOf(image.value(), seed);
            image.bytes[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
            const std::uint32_t changed = before ^ hashOf(image.value(), seed);
            for (unsigned out = 0; out < 32; ++out) {
                flips[out] += static_cast<int>(changed >> out & 1U);
            }
        }
        for (const int flipped : flips) {
            EXPECT_NEAR(flipped, kSamples / 2, tolerance) << sizeof(T) << " input bit " << bit;
        }
    }
}

TEST(Value, EveryFieldAndNothingElseCounts) {
    checkFields<MessageCounter>(kMessageKey + "xxxx....");
    checkFields<ErrorCounter>("x...xxxx");
    checkKey<IntfId>("xxxxxxxx");
    checkKey<MessageCounterKey>(kMessageKey);
    checkKey<ErrorCounterKey>("x");
    checkKey<RsvpSessionId>(kSession);
    checkKey<P2mpSubGroupId>(kGroup);
    checkKey<RsvpSpId>(kPlainSp);
    checkKey<RsvpSpId>(kGroupSp);
    checkKey<RsvpSessionHistoryKey>(kSession + "..xxxx");
    checkKey<RsvpSpHistoryKey>(kPlainSp + "xxxx");
    checkKey<RsvpSpHistoryKey>(kGroupSp + "xxxx");
}

TEST(Value, EntriesOfHistories) {
    const RsvpSessionHistoryKey key({}, 3);
    RsvpSessionHistoryEntry entry(key, Mox::Seconds(100), rsvpSessionMemberHistoryEntry);
    EXPECT_EQ(entry.spCliId(), RsvpCliId(1000000));
    EXPECT_FALSE(entry.created());
    EXPECT_EQ(entry.veskString(), "[ type=0 dst=none tunnel=0 ext=none, 3 ] 100  "
                                  "rsvpSessionMemberHistoryEntry");
    const RsvpSpHistoryEntry large({spId(7, "10.0.0.1", 5, "10.0.0.2", 9), 4294967295U},
                                   Mox::Seconds(1700000000.5), rsvpSpErrorHistoryEntry);
    EXPECT_EQ(large.veskString(), "[ type=7 dst=10.0.0.1 tunnel=5 ext=10.0.0.2 lsp=9, 4294967295 ] "
                                  "1.7e+09  rsvpSpErrorHistoryEntry");
    // By time alone; what is no number is never before anything.
    const RsvpSessionHistoryEntry later(key, Mox::Seconds(100.25), rsvpSessionUnknownEntry);
    const RsvpSessionHistoryEntry never(key, Mox::Seconds(std::nan("")), rsvpSessionUnknownEntry);
    EXPECT_TRUE(RsvpSessionHistoryEntry::timestampLesser(entry, later));
    for (const auto& [left, right] :
         {std::pair{later, entry}, {entry, entry}, {never, entry}, {entry, never}}) {
        EXPECT_FALSE(RsvpSessionHistoryEntry::timestampLesser(left, right));
    }
    EXPECT_FALSE(never == never);
    // An address differs by its family alone.
    RsvpSpHistoryEntry other = large;
    EXPECT_EQ(other, large);
    other.bypassNextHopIs(IpGenAddr(Wirra::ipv4AddressFamily));
    EXPECT_FALSE(other == large);
}

TEST(Value, CountsModulo32Bits) {
    const auto check = [](auto counter) {
        static_assert(
            !requires { decltype(counter)().countInc(1); }, "a copy would count in vain");
        counter.countIs(4294967295U);
        counter.countInc(8);
        EXPECT_EQ(counter.count(), 7U);
    };
    check(MessageCounter());
    check(ErrorCounter());
    // Interface 0 is an interface like any other.
    EXPECT_TRUE(MessageCounter({IntfId(0), rsvpNoneMsg}, 0));
    EXPECT_FALSE(MessageCounter());
}

} // namespace
