#include "Vesk/Util.h"

#include "Pello/Exception.h"

#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

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

void writeCorruptionFile(const Mem::OruRootPath& rootPath, const Pello::String& text) {
    const int fd = open(rootPath.filePath(CORRUPTION_FILENAME).c_str(),
                        O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) return;
    // The name alone is the news; the text is for people.
    [[maybe_unused]] const ssize_t written = write(fd, text.data(), text.size());
    close(fd);
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
