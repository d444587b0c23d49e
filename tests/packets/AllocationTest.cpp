#include "Support.h"

namespace Packets::Test {
namespace {

struct Tally {
    void packet(const FrameSource& source) {
        sent += directionOf(source, locals) == Direction::sent;
    }
    void verdict(const Verdict&) { ++verdicts; }

    std::span<const LocalAddress> locals;
    std::size_t sent = 0;
    std::size_t verdicts = 0;
};

TEST(Allocation, DecodingAllocatesNothing) {
    const std::vector<OwnedFrame> frames = readFrames(PACKETS_SAMPLE);
    const std::vector<LocalAddress> locals{LocalAddress("192.0.2.77"),
                                           LocalAddress("02:00:5e:10:00")};
    ASSERT_GT(allocationCount(), frames.size()); // the counter counts

    Tally tally{.locals = locals};
    const std::size_t before = allocationCount();
    for (const OwnedFrame& owned : frames) {
        (void)decodeFrame(LinkType::ethernet, owned.frame(), tally);
    }
    EXPECT_EQ(allocationCount(), before);
    EXPECT_GT(tally.sent, 0U);
    EXPECT_GT(tally.verdicts, tally.sent);
}

} // namespace
} // namespace Packets::Test
