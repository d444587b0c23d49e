#include "Mem/VersionAnchor.h"

namespace Mem {

void VersionAnchor::validate(const Pello::Platform::DebugHandler& handler,
                             const std::byte* currentBase, std::size_t currentSize) const {
    const Pello::SourceTag tag("VersionAnchor", "SharedMem/VersionAnchor", "validate");
    if (offset == kNone) {
        Pello::fatal(&handler, tag, "should not be called on a default-constructed VersionAnchor");
    }
    const std::size_t end = static_cast<std::size_t>(offset) + sizeof(std::uint32_t);
    const bool readable = offset < kInvalidated && currentBase != nullptr && end <= currentSize;
    if (readable && load(wordAt<std::uint32_t>(currentBase, offset)) == sequence) return;
    throw VersionMismatchException(tag, {});
}

} // namespace Mem
