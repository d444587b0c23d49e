// The bytes of stored values. Files show them to other processes and builds, so every byte of a
// value is determined, padding included, whatever memory it is built in.

#include "ValueSupport.h"

#include "Rsvp/ErrorCounter.h"
#include "Rsvp/MessageCounter.h"
#include "Rsvp/RsvpCliId.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <vector>

namespace {

using Rsvp::P2mpSubGroupId;
using Rsvp::RsvpSessionId;
using Rsvp::RsvpSpId;
using ValueSupport::address;

constexpr std::size_t kRoom = 128;
using Room = std::array<std::byte, kRoom>;

struct Case {
    const char* name;
    void (*build)(void* at);
    std::size_t bytes;
    std::string image; ///< in hexadecimal; blanks are for the eye
};

template <class T, T (*make)()>
Case caseOf(const char* name, std::string image) {
    return {name, [](void* at) { ::new (at) T(make()); }, sizeof(T), std::move(image)};
}

template <class T>
T makeDefault() {
    return T();
}

std::string zeros(std::size_t bytes) { return std::string(2 * bytes, '0'); }

Rsvp::Vesk::MessageCounter messageCounter() {
    return {{Wirra::IntfId(0x0123456789ABCDEF), Rsvp::rsvpHelloMsg}, 0xA1B2C3D4};
}
Rsvp::Vesk::ErrorCounter errorCounter() {
    return {Rsvp::Vesk::ErrorCounterKey(Rsvp::invalidSeqNoErrorType), 0xA1B2C3D4};
}
RsvpSessionId sessionId() { return {8, address("2001:db8::1"), 0x1234, address("10.0.0.2")}; }
RsvpSpId plainSpId() { return {sessionId(), 7}; }
RsvpSpId groupSpId() { return {sessionId(), 7, P2mpSubGroupId(address("10.0.0.9"), 0x5678)}; }
Rsvp::RsvpSpBwState bwState() {
    return {Rsvp::rsvpSpRejectedBwAdmission, Rsvp::RsvpError(1, 2), 0x0102030405060708,
            Wirra::IntfId(9)};
}

const std::string kSession = "08 20010db8000000000000000000000001 02 3412"
                             "0a000002000000000000000000000000 01 00";

std::vector<Case> cases() {
    using Rsvp::Vesk::ErrorCounter;
    using Rsvp::Vesk::ErrorCounterKey;
    using Rsvp::Vesk::MessageCounter;
    using Rsvp::Vesk::MessageCounterKey;
    return {
        caseOf<Wirra::IntfId, makeDefault<Wirra::IntfId>>("IntfId", "ffffffff 00000000"),
        caseOf<Wirra::IpGenAddr, makeDefault<Wirra::IpGenAddr>>("IpGenAddr", zeros(17)),
        caseOf<MessageCounterKey, makeDefault<MessageCounterKey>>(
            "MessageCounterKey", "ffffffff00000000 00000000 00000000"),
        caseOf<MessageCounter, makeDefault<MessageCounter>>(
            "MessageCounter", "ffffffff00000000 00000000 00000000 00000000 00000000"),
        caseOf<MessageCounter, messageCounter>(
            "MessageCounter, filled", "efcdab8967452301 14000000 00000000 d4c3b2a1 00000000"),
        caseOf<ErrorCounterKey, makeDefault<ErrorCounterKey>>("ErrorCounterKey", "00"),
        caseOf<ErrorCounter, makeDefault<ErrorCounter>>("ErrorCounter", "00 000000 00000000"),
        caseOf<ErrorCounter, errorCounter>("ErrorCounter, filled", "0f 000000 d4c3b2a1"),
        caseOf<RsvpSessionId, makeDefault<RsvpSessionId>>("RsvpSessionId", zeros(38)),
        caseOf<RsvpSessionId, sessionId>("RsvpSessionId, filled", kSession),
        caseOf<RsvpSpId, makeDefault<RsvpSpId>>("RsvpSpId", zeros(40) + "00000100" + zeros(24)),
        caseOf<RsvpSpId, plainSpId>("RsvpSpId, plain", kSession + "0000 07000000" + zeros(24)),
        caseOf<RsvpSpId, groupSpId>("RsvpSpId, with sub-group",
                                    kSession + "0000 07000000 0a000009" + zeros(12) +
                                        "01 00 7856 01 000000"),
        caseOf<Rsvp::RsvpCliId, makeDefault<Rsvp::RsvpCliId>>("RsvpCliId", "40420f00"),
        caseOf<Rsvp::RsvpError, makeDefault<Rsvp::RsvpError>>("RsvpError", "00010000 0000 0000"),
        caseOf<Rsvp::RsvpSpBwState, makeDefault<Rsvp::RsvpSpBwState>>(
            "RsvpSpBwState",
            "00 000000 00010000 0000 0000 00000000" + zeros(8) + "ffffffff00000000"),
        caseOf<Rsvp::RsvpSpBwState, bwState>(
            "RsvpSpBwState, filled",
            "03 000000 01000000 0200 0000 00000000 0807060504030201 0900000000000000"),
    };
}

TEST(Layout, EveryByteOfAValueIsDetermined) {
    for (const Case& value : cases()) {
        std::string wanted = value.image;
        std::erase(wanted, ' ');
        ASSERT_EQ(wanted.size(), 2 * value.bytes) << value.name;
        for (const std::byte filling : {std::byte{0xAA}, std::byte{0x55}}) {
            alignas(8) Room room;
            room.fill(filling);
            // Volatile, so that the filling is not taken for dead stores.
            void (*volatile build)(void*) = value.build;
            build(room.data());
            std::string found;
            for (std::size_t at = 0; at < value.bytes; ++at) {
                found += fmt::format("{:02x}", static_cast<unsigned>(room[at]));
            }
            EXPECT_EQ(found, wanted) << value.name;
            EXPECT_EQ(room[value.bytes], filling) << value.name;
        }
    }
}

} // namespace
