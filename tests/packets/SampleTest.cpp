// The sample capture is what its generator makes. That the tool counts in it what the generator
// meant is a test of the tool.

#include "Support.h"

#include <fmt/format.h>

#include <cstdlib>

namespace Packets::Test {

TEST(Sample, IsWhatTheGeneratorMakes) {
    const std::string command = fmt::format(
        "mkdir '{2}' && '{0}' -B '{1}' --output '{2}/two-links.pcap' && "
        "cmp '{2}/two-links.pcap' '{3}' && cmp '{2}/two-links.expected.json' '{4}' && rm -r '{2}'",
        PACKETS_PYTHON, PACKETS_GENERATOR, scratch, PACKETS_SAMPLE, PACKETS_SAMPLE_EXPECTED);
    EXPECT_EQ(std::system(command.c_str()), 0);
}

} // namespace Packets::Test
