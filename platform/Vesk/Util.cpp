#include "Vesk/Util.h"

#include "Pello/Exception.h"

#include <atomic>
#include <cstdlib>

namespace Vesk::Util {

namespace {

std::atomic<bool> physicalDut{false};
std::atomic<bool> strict{false};

} // namespace

void validateFile(const Mem::Mapping& mapping) {
    if (const Pello::String problem = mapping.validateFile(); !problem.empty()) {
        Pello::raise<Pello::CorruptionDetectedException>({"Util", "Vesk/Util", "validateFile"},
                                                         "{}", problem);
    }
}

bool runningOnPhysicalDut() { return physicalDut; }
bool strictValidation() { return strict; }
void runningOnPhysicalDutIs(bool value) { physicalDut = value; }
void strictValidationIs(bool value) { strict = value; }

std::uint32_t newHashSeed(std::uint32_t previous, std::uint32_t beforeThat) {
    std::uint32_t seed = 0;
    do {
        seed = static_cast<std::uint32_t>(std::rand());
    } while (seed == previous || seed == beforeThat);
    return seed;
}

} // namespace Vesk::Util
