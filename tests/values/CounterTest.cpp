// Message and error counters and their keys: counting, order, equality, compact text.

#include "ValueSupport.h"

#include "Rsvp/ErrorCounter.h"
#include "Rsvp/MessageCounter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using Rsvp::Vesk::ErrorCounter;
using Rsvp::Vesk::ErrorCounterKey;
using Rsvp::Vesk::MessageCounter;
using Rsvp::Vesk::MessageCounterKey;
using Wirra::IntfId;

template <class Counter>
void checkCounting(Counter counter) {
    counter.countIs(4294967295U);
    counter.countInc(1);
    EXPECT_EQ(counter.count(), 0U);
    counter.countInc(7);
    EXPECT_EQ(counter.count(), 7U);
    counter.countInc(4294967290U);
    EXPECT_EQ(counter.count(), 1U);
}

template <class Counter>
concept TemporaryCounts = requires {
    Counter().countInc(1);
};
static_assert(!TemporaryCounts<MessageCounter> && !TemporaryCounts<ErrorCounter>,
              "an increment of a copy would be lost");
static_assert(!std::is_convertible_v<MessageCounter, bool>);

TEST(Counter, CountsModulo32Bits) {
    checkCounting(MessageCounter());
    checkCounting(ErrorCounter());
}

TEST(Counter, MessageKeysOrderByInterfaceThenByTypeNumber) {
    // Ascending; every pair is compared both ways.
    const std::vector<MessageCounterKey> ascending = {
        {IntfId(0), Rsvp::rsvpPathMsg},
        {IntfId(1), Rsvp::rsvpNoneMsg},
        {IntfId(1), Rsvp::rsvpPathErrMsg},
        {IntfId(1), Rsvp::rsvpResvConfMsg},
        {IntfId(1), static_cast<Rsvp::RsvpMsgType>(0x80000000U)},
        {IntfId(2), Rsvp::rsvpPathMsg},
        {IntfId(), Rsvp::rsvpNoneMsg},
        {IntfId(0x100000000U), Rsvp::rsvpNoneMsg},
        {IntfId(0x8000000000000000U), Rsvp::rsvpNoneMsg},
    };
    for (std::size_t i = 0; i < ascending.size(); ++i) {
        for (std::size_t j = 0; j < ascending.size(); ++j) {
            EXPECT_EQ(ascending[i] < ascending[j], i < j) << i << " " << j;
            EXPECT_EQ(ascending[i] == ascending[j], i == j) << i << " " << j;
        }
    }
    for (unsigned i = 0; i < 256; ++i) {
        for (unsigned j = 0; j < 256; ++j) {
            const ErrorCounterKey left(Rsvp::RsvpErrorTypeInstance(i));
            const ErrorCounterKey right(Rsvp::RsvpErrorTypeInstance(j));
            ASSERT_EQ(left < right, i < j) << i << " " << j;
            ASSERT_EQ(left == right, i == j) << i << " " << j;
        }
    }
}

TEST(Counter, EqualityTakesEveryField) {
    const MessageCounter message({IntfId(1), Rsvp::rsvpPathMsg}, 5);
    EXPECT_EQ(message, MessageCounter({IntfId(1), Rsvp::rsvpPathMsg}, 5));
    EXPECT_NE(message, MessageCounter({IntfId(2), Rsvp::rsvpPathMsg}, 5));
    EXPECT_NE(message, MessageCounter({IntfId(1), Rsvp::rsvpResvMsg}, 5));
    EXPECT_NE(message, MessageCounter({IntfId(1), Rsvp::rsvpPathMsg}, 6));
    const ErrorCounter error(ErrorCounterKey(Rsvp::intfErrorType), 5);
    EXPECT_EQ(error, ErrorCounter(ErrorCounterKey(Rsvp::intfErrorType), 5));
    EXPECT_NE(error, ErrorCounter(ErrorCounterKey(Rsvp::arpErrorType), 5));
    EXPECT_NE(error, ErrorCounter(ErrorCounterKey(Rsvp::intfErrorType), 4));
}

TEST(Counter, StrayBytesInThePaddingChangeNothing) {
    // As read from a file that something else has scribbled on.
    const MessageCounter clean({IntfId(1), Rsvp::rsvpPathMsg}, 5);
    MessageCounter stray = clean;
    auto* bytes = reinterpret_cast<std::byte*>(&stray);
    std::memset(bytes + 12, 0xEE, 4);
    std::memset(bytes + 20, 0xEE, 4);
    EXPECT_EQ(stray, clean);
    EXPECT_FALSE(stray.key() < clean.key());
    EXPECT_FALSE(clean.key() < stray.key());
    EXPECT_EQ(stray.key().hash(77), clean.key().hash(77));
}

TEST(Counter, TrueWhenItDiffersFromADefaultOne) {
    EXPECT_FALSE(MessageCounter());
    EXPECT_TRUE(MessageCounter({IntfId(), Rsvp::rsvpPathMsg}, 0));
    EXPECT_TRUE(MessageCounter({IntfId(), Rsvp::rsvpNoneMsg}, 1));
    // Interface 0 is an interface like any other.
    EXPECT_TRUE(MessageCounter({IntfId(0), Rsvp::rsvpNoneMsg}, 0));
}

TEST(Counter, CompactText) {
    EXPECT_EQ(MessageCounter({IntfId(0x2A), Rsvp::rsvpPathMsg}, 12).veskString(),
              "[Intf(0x2a),rsvpPathMsg]12");
    EXPECT_EQ(MessageCounter().veskString(), "[Intf(0xffffffff),rsvpNoneMsg]0");
    EXPECT_EQ(MessageCounter({IntfId(1), static_cast<Rsvp::RsvpMsgType>(10)}, 1).veskString(),
              "[Intf(0x1),10]1");
    EXPECT_EQ(
        ErrorCounter(ErrorCounterKey(Rsvp::unknownNeighborErrorType), 4294967295U).veskString(),
        "[unknownNeighborErrorType]4294967295");
}

} // namespace
