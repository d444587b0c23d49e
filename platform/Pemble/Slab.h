#pragma once

#include <cstddef>

/// Memory for small framework objects: freed pieces are kept by size and handed out again, most
/// recently freed first. Any thread.
namespace Pemble {

/// At least `size` bytes, aligned for any fundamental type. Throws `std::bad_alloc`.
void* slabAlloc(std::size_t size);

/// Takes back what `slabAlloc(size)` gave.
void slabFree(void* memory, std::size_t size) noexcept;

/// Base of the classes whose objects come from here.
struct SlabAllocated {
    static void* operator new(std::size_t size) { return slabAlloc(size); }
    static void operator delete(void* memory, std::size_t size) noexcept { slabFree(memory, size); }
};

} // namespace Pemble
