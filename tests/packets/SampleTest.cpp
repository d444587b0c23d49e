// The sample captures are what their generator makes. That the tool counts in them what the
// generator meant is a test of the tool.

#include "Support.h"

#include <fmt/format.h>

#include <cstdlib>

namespace Packets::Test {

TEST(Sample, IsWhatTheGeneratorMakes) {
    const struct {
        const char* name;
        const char* suffix;
    } samples[] = {{"two-links", "pcap"}, {"many-links", "pcapng"}};
    for (const auto& [name, suffix] : samples) {
        const std::string command = fmt::format(
            "mkdir '{2}' && '{0}' -B '{1}' --sample {4} --output '{2}/{4}.{5}' && "
            "cmp '{2}/{4}.{5}' '{3}/{4}.{5}' && "
            "cmp '{2}/{4}.expected.json' '{3}/{4}.expected.json' && rm -r '{2}'",
            PACKETS_PYTHON, PACKETS_GENERATOR, scratch + name, PACKETS_SAMPLES, name, suffix);
        EXPECT_EQ(std::system(command.c_str()), 0) << name;
    }
}

} // namespace Packets::Test
