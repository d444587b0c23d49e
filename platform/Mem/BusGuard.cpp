#include "Mem/BusGuard.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <mutex>
#include <sys/mman.h>
#include <unistd.h>

namespace Mem::BusGuard {

namespace {

/// The handler reads it while other threads change it, so every field is a word of its own, and an
/// entry counts while its base is not 0.
struct Range {
    std::atomic<std::uintptr_t> base{0};
    std::atomic<std::size_t> size{0};
    std::atomic<bool> patched{false};
};

constexpr std::size_t kRanges = 8192;

std::array<Range, kRanges> ranges;
std::atomic<std::size_t> used{0}; // entries behind it were never used
std::atomic<bool> guarding{true};
std::atomic<std::uintptr_t> pageSize{0};
struct sigaction previous {};

std::mutex& mutex() {
    static auto* const instance = new std::mutex;
    return *instance;
}

Range* rangeOf(std::uintptr_t address) {
    const auto end = ranges.begin() + static_cast<std::ptrdiff_t>(used.load());
    const auto at = std::find_if(ranges.begin(), end, [address](const Range& range) {
        const std::uintptr_t base = range.base;
        return base != 0 && address >= base && address - base < range.size;
    });
    return at == end ? nullptr : &*at;
}

void handle(int signal, siginfo_t* info, void* context) {
    const auto address = reinterpret_cast<std::uintptr_t>(info->si_addr);
    const std::uintptr_t page = pageSize;
    Range* const range = info->si_code == BUS_ADRERR ? rangeOf(address) : nullptr;
    if (range != nullptr) {
        void* const zeros = static_cast<std::byte*>(info->si_addr) - address % page;
        if (mmap(zeros, page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == zeros) {
            range->patched = true;
            return;
        }
    }
    if ((previous.sa_flags & SA_SIGINFO) != 0) {
        previous.sa_sigaction(signal, info, context);
    } else if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
        previous.sa_handler(signal);
    } else if (const bool isOfAnAccess = info->si_code > 0 && info->si_code != BUS_MCEERR_AO;
               isOfAnAccess || previous.sa_handler == SIG_DFL) {
        // The access is tried again, or the signal sent again: either ends the process, as it would
        // have without this handler.
        std::signal(signal, SIG_DFL);
        if (!isOfAnAccess) raise(signal);
    }
}

void install() {
    static const bool installed = [] {
        pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
        struct sigaction action {};
        action.sa_sigaction = handle;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        sigaction(SIGBUS, nullptr, &previous); // known before the first signal comes
        return sigaction(SIGBUS, &action, nullptr) == 0;
    }();
    static_cast<void>(installed);
}

} // namespace

void enabledIs(bool enabled) { guarding = enabled; }

bool add(const std::byte* base, std::size_t size) {
    if (!guarding) return true;
    const std::lock_guard lock(mutex());
    install();
    const auto page = pageSize.load();
    for (std::size_t i = 0; i < kRanges; ++i) {
        Range& range = ranges[i];
        if (range.base != 0) continue;
        range.patched = false;
        range.size = (size + page - 1) / page * page;
        range.base = reinterpret_cast<std::uintptr_t>(base);
        used = std::max(used.load(), i + 1);
        return true;
    }
    return false;
}

bool wasPatched(const std::byte* base) {
    const Range* const range = rangeOf(reinterpret_cast<std::uintptr_t>(base));
    return range != nullptr && range->patched;
}

void remove(const std::byte* base) {
    const std::lock_guard lock(mutex());
    for (std::size_t i = 0; i < used; ++i) {
        if (ranges[i].base != reinterpret_cast<std::uintptr_t>(base)) continue;
        ranges[i].base = 0;
        return;
    }
}

} // namespace Mem::BusGuard
