#include "state/Timers.h"

namespace State {

void Timers::set(const Timer& timer) {
    if (timer.slot >= places_.size()) places_.resize(timer.slot + std::size_t{1}, kNowhere);
    std::size_t at = places_[timer.slot];
    if (at == kNowhere) {
        at = heap_.size();
        heap_.push_back(timer);
    }
    settle(at, timer);
}

void Timers::remove(std::uint32_t slot) {
    const std::size_t at = places_[slot];
    const Timer last = heap_.back();
    heap_.pop_back();
    places_[slot] = kNowhere;
    if (at != heap_.size()) settle(at, last);
}

void Timers::settle(std::size_t at, const Timer& timer) {
    while (at > 0 && timer < heap_[(at - 1) / 2]) {
        put(at, heap_[(at - 1) / 2]);
        at = (at - 1) / 2;
    }
    for (;;) {
        std::size_t child = 2 * at + 1;
        if (child >= heap_.size()) break;
        if (child + 1 < heap_.size() && heap_[child + 1] < heap_[child]) ++child;
        if (!(heap_[child] < timer)) break;
        put(at, heap_[child]);
        at = child;
    }
    put(at, timer);
}

} // namespace State
