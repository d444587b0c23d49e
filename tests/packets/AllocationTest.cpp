#include "Support.h"

#include <atomic>
#include <cstdlib>
#include <new>

static std::atomic<std::size_t> allocations{0};

// Never inlined, so that no compiler sees one half of an allocation and not the other. Exactly the
// size asked for: an address checker is to see the first octet behind it.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace Packets::Test {

struct Tally {
    void packet(const FrameSource& source) {
        sent += directionOf(source, locals) == Direction::sent;
    }
    void verdict(const Verdict&) { ++verdicts; }

    std::vector<LocalAddress> locals{LocalAddress("192.0.2.77"), LocalAddress("02:00:5e:10:00")};
    std::size_t sent = 0, verdicts = 0;
};

TEST(Allocation, NothingForAPacket) {
    const std::vector<OwnedFrame> frames = readFrames(PACKETS_SAMPLE);
    ASSERT_GT(allocations, frames.size()); // the counter counts
    Tally tally;
    FrameDecoder decoder(noKeys);
    const std::size_t before = allocations;
    for (const OwnedFrame& owned : frames) {
        (void)decoder.decode(recordOf(owned.linkType, owned.frame()), tally);
    }
    EXPECT_LE(allocations, before + 1); // for all fragments, with the first
    EXPECT_GT(tally.sent, 0U);
    EXPECT_GT(tally.verdicts, tally.sent);
}

} // namespace Packets::Test
