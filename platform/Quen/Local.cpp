#include "Quen/Local.h"

#include <algorithm>

namespace Quen {

void Local<bool>::resize(std::size_t n) {
    if (n == size_) return;
    const std::size_t words = n / 64U + (n % 64U != 0 ? 1U : 0U);
    std::unique_ptr<std::uint64_t[]> fresh;
    try {
        fresh.reset(new std::uint64_t[words]());
    } catch (const std::bad_alloc&) {
        Pello::raise<Pello::MemoryResourceException>({"Local", "Quen/Local", "doResize"},
                                                     "n:{} unable to resize", n);
    }
    const std::size_t kept = std::min(size_, n);
    std::copy_n(words_.get(), kept / 64U + (kept % 64U != 0 ? 1U : 0U), fresh.get());
    if (kept % 64U != 0) fresh[kept / 64U] &= (std::uint64_t{1} << (kept % 64U)) - 1U;
    words_ = std::move(fresh);
    size_ = n;
}

} // namespace Quen
