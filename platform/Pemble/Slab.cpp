#include "Pemble/Slab.h"

#include <array>
#include <mutex>
#include <new>

namespace Pemble {

namespace {

constexpr std::size_t kStep = alignof(std::max_align_t);
constexpr std::size_t kLargest = 512;
constexpr std::size_t kPerSlab = 32;

/// A piece that nobody uses; what lies in it is the list.
struct Free {
    Free* next;
};

struct Slabs {
    std::mutex mutex;
    std::array<Free*, kLargest / kStep + 1> free{};
};

Slabs& slabs() {
    static auto* const instance = new Slabs;
    return *instance;
}

std::size_t classOf(std::size_t size) { return (size + kStep - 1) / kStep; }

} // namespace

void* slabAlloc(std::size_t size) {
    if (size > kLargest || size == 0) return ::operator new(size);
    const std::size_t index = classOf(size);
    Slabs& s = slabs();
    const std::lock_guard lock(s.mutex);
    Free*& head = s.free[index];
    if (head == nullptr) {
        const std::size_t piece = index * kStep;
        auto* const slab = static_cast<std::byte*>(::operator new(piece* kPerSlab));
        for (std::size_t i = kPerSlab; i-- != 0;) {
            head = new (slab + i * piece) Free{head};
        }
    }
    Free* const taken = head;
    head = taken->next;
    return taken;
}

void slabFree(void* memory, std::size_t size) noexcept {
    if (memory == nullptr) return;
    if (size > kLargest || size == 0) {
        ::operator delete(memory);
        return;
    }
    Slabs& s = slabs();
    const std::lock_guard lock(s.mutex);
    Free*& head = s.free[classOf(size)];
    head = new (memory) Free{head};
}

} // namespace Pemble
