#include "Pello/Fork.h"

#include <algorithm>
#include <pthread.h>
#include <vector>

namespace Pello {

namespace {

struct Entry {
    std::mutex* mutex;
    void (*inChild)();
};

struct Registry {
    std::mutex mutex;
    std::vector<Entry> entries;
};

Registry& registry() {
    static auto* const instance = new Registry;
    return *instance;
}

void prepare() {
    registry().mutex.lock();
    for (const Entry& entry : registry().entries) {
        entry.mutex->lock();
    }
}

void unlockAll() {
    std::for_each(registry().entries.rbegin(), registry().entries.rend(),
                  [](const Entry& entry) { entry.mutex->unlock(); });
    registry().mutex.unlock();
}

void inChild() {
    for (const Entry& entry : registry().entries) {
        entry.inChild();
    }
    unlockAll();
}

} // namespace

void atFork(std::mutex& mutex, void (*inChildOfCaller)()) {
    static const int hooked = pthread_atfork(prepare, unlockAll, inChild);
    static_cast<void>(hooked);
    const std::lock_guard lock(registry().mutex);
    registry().entries.push_back({&mutex, inChildOfCaller});
}

} // namespace Pello
