// Replaces the allocation functions of the whole program. A sanitizer has its own `malloc`: there
// only `operator new` is counted.

#include "Allocations.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> count{0};
std::atomic<std::size_t> failing{SIZE_MAX};

} // namespace

std::size_t ErrorsTest::allocations() { return count; }
void ErrorsTest::failNextAllocationOf(std::size_t bytes) { failing = bytes; }

void* operator new(std::size_t size) {
    ++count;
    if (size >= failing) {
        failing = SIZE_MAX;
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t n, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

void* malloc(std::size_t size) {
    ++count;
    return __libc_malloc(size);
}
void* calloc(std::size_t n, std::size_t size) {
    ++count;
    return __libc_calloc(n, size);
}
void* realloc(void* memory, std::size_t size) {
    ++count;
    return __libc_realloc(memory, size);
}

} // extern "C"

#endif
