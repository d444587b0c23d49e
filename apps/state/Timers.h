#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace State {

/// One timer for each of any number of slots, ordered by time and, at one time, by rank. A heap
/// that knows the place of every timer, so that it holds nothing but those that run.
class Timers {
  public:
    struct Timer {
        std::int64_t due = 0;   ///< nanoseconds
        std::uint64_t rank = 0; ///< decides between timers that are due at the same time
        std::uint32_t slot = 0;

        friend auto operator<=>(const Timer&, const Timer&) = default;
    };

    [[nodiscard]] bool empty() const noexcept { return heap_.empty(); }
    /// The one that is due first; there must be any.
    [[nodiscard]] const Timer& first() const { return heap_.front(); }

    /// Starts the slot's timer, or sets the one that runs to another time.
    void set(const Timer& timer);
    /// Stops the slot's timer, which must run.
    void remove(std::uint32_t slot);

  private:
    static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

    void put(std::size_t at, const Timer& timer) {
        heap_[at] = timer;
        places_[timer.slot] = at;
    }
    /// Puts the timer where it belongs, from a place on that is free.
    void settle(std::size_t at, const Timer& timer);

    std::vector<Timer> heap_;
    std::vector<std::size_t> places_; // in the heap, by slot
};

} // namespace State
