#include "Pello/Scheduler.h"

#include <utility>

namespace Pello {

void TaskSchedulerRoot::criticalPriorityTaskIs(Task task) { critical_.push_back(std::move(task)); }

void TaskSchedulerRoot::runCriticalPriorityTasks() {
    const std::vector<Task> ready = std::exchange(critical_, {});
    for (const Task& task : ready) {
        task();
    }
}

TaskSchedulerRoot::Ptr schedulerRootPello() {
    thread_local const auto root = std::make_shared<TaskSchedulerRoot>();
    return root;
}

} // namespace Pello
