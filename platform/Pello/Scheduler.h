#pragma once

#include "Pello/Time.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Pello {

/// The tasks of one thread that may not wait for a long operation to end. They run between two
/// slices of such an operation, inside the critical section of the table that is being changed:
/// a critical task does not use that table. To write it is fatal, and a look-up may take a chain
/// that is half split for a corrupt one.
class TaskSchedulerRoot {
  public:
    using Ptr = std::shared_ptr<TaskSchedulerRoot>;
    using Task = std::function<void()>;

    void criticalPriorityTaskIs(Task task);

    /// Runs every task that was ready when the call began; what they add waits for the next call.
    void runCriticalPriorityTasks();

  private:
    std::vector<Task> critical_;
};

/// The calling thread's scheduler root. The reference is to be let go after use.
TaskSchedulerRoot::Ptr schedulerRootPello();

/// Lets the critical tasks of the thread run during long work, every 10 ms; never when not
/// `enabled`.
class CriticalTaskSlices {
  public:
    explicit CriticalTaskSlices(bool enabled)
        : enabled_(enabled)
        , deadline_(newDeadline()) {}

    void maybeRun() {
        if (!enabled_ || Rdtsc::now() <= deadline_) return;
        schedulerRootPello()->runCriticalPriorityTasks();
        deadline_ = newDeadline();
    }

  private:
    static std::uint64_t newDeadline() {
        constexpr double kSlice = 0.01; // seconds
        return Rdtsc::now() + static_cast<std::uint64_t>(kSlice * Rdtsc::calibrationRate());
    }

    bool enabled_;
    std::uint64_t deadline_;
};

} // namespace Pello
