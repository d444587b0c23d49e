// Identifiers of sessions and state paths: equality, order and hash agree with each other and with
// a model, and nothing outside the fields is looked at.

#include "ValueSupport.h"

#include "Rsvp/RsvpCliId.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <new>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Rsvp::P2mpSubGroupId;
using Rsvp::RsvpSessionId;
using Rsvp::RsvpSpId;
using ValueSupport::address;

using AddressModel = std::tuple<unsigned, std::array<std::uint8_t, 16>>;
using SessionModel = std::tuple<unsigned, AddressModel, unsigned, AddressModel>;
using SpModel =
    std::tuple<SessionModel, std::uint32_t, std::vector<std::tuple<AddressModel, unsigned>>>;

AddressModel modelOf(const Wirra::IpGenAddr& address) {
    return {address.family(), address.bytes()};
}
SessionModel modelOf(const RsvpSessionId& session) {
    return {session.sessionType(), modelOf(session.destination()), session.tunnelId(),
            modelOf(session.extendedTunnelId())};
}
SpModel modelOf(const RsvpSpId& spId) {
    SpModel model{modelOf(spId.sessionId()), spId.lspId(), {}};
    if (const P2mpSubGroupId* group = spId.subGroupId()) {
        std::get<2>(model).emplace_back(modelOf(group->originator()), group->subGroup());
    }
    return model;
}

/// Values that differ in one field at a time from their neighbours, plus random ones.
std::vector<RsvpSpId> manySpIds() {
    ValueSupport::Random random(7);
    std::vector<RsvpSpId> all = {RsvpSpId()};
    for (int round = 0; round < 40; ++round) {
        const RsvpSpId base = random.spId();
        const RsvpSessionId& session = base.sessionId();
        std::array<std::uint8_t, 16> bytes = session.destination().bytes();
        bytes[random.below(16)] ^= std::uint8_t{0x80};
        const Wirra::IpGenAddr other(bytes, session.destination().family());
        const Wirra::IpGenAddr otherFamily(session.destination().bytes(),
                                           static_cast<Wirra::AddressFamily>(random.below(256)));
        const std::uint16_t tunnel = session.tunnelId();
        all.push_back(base);
        all.emplace_back(session, base.lspId() ^ 0x10000U);
        all.emplace_back(session, base.lspId(), P2mpSubGroupId(Wirra::IpGenAddr(), 0));
        all.emplace_back(session, base.lspId(), P2mpSubGroupId(other, 1));
        for (const RsvpSessionId& near :
             {RsvpSessionId(static_cast<std::uint8_t>(session.sessionType() ^ 1U),
                            session.destination(), tunnel, session.extendedTunnelId()),
              RsvpSessionId(session.sessionType(), other, tunnel, session.extendedTunnelId()),
              RsvpSessionId(session.sessionType(), otherFamily, tunnel, session.extendedTunnelId()),
              RsvpSessionId(session.sessionType(), session.destination(),
                            static_cast<std::uint16_t>(tunnel ^ 0x100U),
                            session.extendedTunnelId()),
              RsvpSessionId(session.sessionType(), session.destination(), tunnel, other),
              RsvpSessionId(session.sessionType(), session.destination(), tunnel, otherFamily)}) {
            all.emplace_back(near, base.lspId());
        }
    }
    return all;
}

TEST(Identifier, EqualityOrderAndHashFollowTheFields) {
    const std::vector<RsvpSpId> all = manySpIds();
    for (const RsvpSpId& left : all) {
        for (const RsvpSpId& right : all) {
            const bool equal = modelOf(left) == modelOf(right);
            ASSERT_EQ(left == right, equal) << left << "\n" << right;
            ASSERT_EQ(left < right, modelOf(left) < modelOf(right)) << left << "\n" << right;
            // Not a promise of any hash, but these few hundred never meet by chance.
            ASSERT_EQ(left.hash() == right.hash(), equal) << left << "\n" << right;
            const RsvpSessionId& leftSession = left.sessionId();
            const RsvpSessionId& rightSession = right.sessionId();
            ASSERT_EQ(leftSession == rightSession, modelOf(leftSession) == modelOf(rightSession));
            ASSERT_EQ(leftSession < rightSession, modelOf(leftSession) < modelOf(rightSession));
        }
    }
}

TEST(Identifier, Defaults) {
    const RsvpSpId spId;
    EXPECT_EQ(spId.lspId(), 65536U);
    EXPECT_EQ(spId.subGroupId(), nullptr);
    EXPECT_EQ(spId.sessionId(), RsvpSessionId(0, Wirra::IpGenAddr(Wirra::unknownAddressFamily), 0,
                                              Wirra::IpGenAddr(Wirra::unknownAddressFamily)));
    EXPECT_EQ(spId, RsvpSpId());
    EXPECT_EQ(spId.hash(), RsvpSpId().hash());
    EXPECT_EQ(Rsvp::RsvpCliId().value(), 1000000U);
    EXPECT_EQ(Rsvp::RsvpError().errorCode(), 256U);
    EXPECT_EQ(Rsvp::RsvpSpBwState().error(), Rsvp::RsvpError());
    EXPECT_EQ(Rsvp::RsvpSpBwState().intfId(), Wirra::IntfId());
    EXPECT_EQ(Wirra::IntfId().raw(), 0x00000000FFFFFFFFU);
}

/// The bytes of a state path without sub-group as a hostile file may hold them: garbage in the
/// area of the sub-group and in all padding.
struct Scribbled {
    explicit Scribbled(const RsvpSpId& clean, unsigned char garbage, unsigned char engaged) {
        std::memcpy(image.data(), static_cast<const void*>(&clean), sizeof clean);
        std::memset(image.data() + 37, garbage, 3);
        std::memset(image.data() + 44, garbage, 20);
        image[64] = static_cast<std::byte>(engaged);
        std::memset(image.data() + 65, garbage, 3);
    }
    const RsvpSpId& value() const { return *reinterpret_cast<const RsvpSpId*>(image.data()); }

    alignas(RsvpSpId) std::array<std::byte, sizeof(RsvpSpId)> image{};
};

bool sameBytes(const RsvpSpId& left, const RsvpSpId& right) {
    return std::memcmp(static_cast<const void*>(&left), static_cast<const void*>(&right), 37) ==
               0 &&
           std::memcmp(reinterpret_cast<const std::byte*>(&left) + 38,
                       reinterpret_cast<const std::byte*>(&right) + 38, sizeof left - 38) == 0;
}

TEST(Identifier, AnAbsentSubGroupIsNeverReadNorCopied) {
    ValueSupport::Random random(11);
    for (int round = 0; round < 200; ++round) {
        const RsvpSpId clean(random.sessionId(), random.number<std::uint32_t>());
        const Scribbled scribbled(clean, 0xAA, 0);
        const RsvpSpId copy(scribbled.value());
        EXPECT_EQ(copy.subGroupId(), nullptr);
        EXPECT_EQ(scribbled.value(), clean);
        EXPECT_EQ(scribbled.value().hash(), clean.hash());
        EXPECT_FALSE(scribbled.value() < clean || clean < scribbled.value());
        EXPECT_TRUE(sameBytes(copy, clean));

        RsvpSpId assigned = random.spId();
        assigned = scribbled.value();
        EXPECT_EQ(assigned, clean);
        EXPECT_TRUE(sameBytes(assigned, clean));

        const RsvpSpId withGroup(random.sessionId(), 1, random.subGroupId());
        assigned = withGroup;
        EXPECT_EQ(assigned, withGroup);
        EXPECT_TRUE(sameBytes(assigned, withGroup));
        const RsvpSpId& self = assigned;
        assigned = self;
        EXPECT_EQ(assigned, withGroup);
    }
}

TEST(Identifier, AnyEngagedByteButZeroMeansASubGroup) {
    const RsvpSpId clean(RsvpSessionId(), 3, P2mpSubGroupId(Wirra::IpGenAddr(), 0));
    const Scribbled scribbled(clean, 0, 0x80);
    ASSERT_NE(scribbled.value().subGroupId(), nullptr);
    EXPECT_EQ(scribbled.value(), clean);
    EXPECT_EQ(scribbled.value().hash(), clean.hash());
    EXPECT_TRUE(sameBytes(RsvpSpId(scribbled.value()), clean));
}

TEST(Identifier, StringValues) {
    const RsvpSessionId session(7, address("10.0.0.1"), 5, address("10.0.0.2"));
    EXPECT_EQ(session.stringValue(), "type=7 dst=10.0.0.1 tunnel=5 ext=10.0.0.2");
    EXPECT_EQ(RsvpSpId(session, 3).stringValue(), session.stringValue() + " lsp=3");
    EXPECT_EQ(RsvpSpId(session, 3, P2mpSubGroupId(address("10.0.0.9"), 1)).stringValue(),
              session.stringValue() + " lsp=3 subgroup=10.0.0.9/1");
}

} // namespace
