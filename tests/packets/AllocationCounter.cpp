// Replaces the global allocation functions. In a file of its own, so that no compiler sees one half
// of an allocation inlined and the other not.

#include "Support.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations{0};

[[nodiscard]] void* counted(void* memory) {
    ++allocations;
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

} // namespace

std::size_t Packets::Test::allocationCount() { return allocations.load(); }

// Exactly the size asked for: an address checker is to see the first octet behind it.
void* operator new(std::size_t size) { return counted(std::malloc(size == 0 ? 1 : size)); }
void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto unit = static_cast<std::size_t>(alignment);
    return counted(std::aligned_alloc(unit, (size + unit - 1) / unit * unit));
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
