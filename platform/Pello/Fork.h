#pragma once

#include <mutex>

namespace Pello {

/// Runs `inChild` in every child that this process forks, before anything else runs there, for
/// process-wide state that a child must not keep. `mutex` guards that state; it is held over the
/// fork, so that the child finds the state whole. Both live until the process ends.
///
/// Mutexes are taken in the order of their registration: who holds one may wait for a later one
/// only.
void atFork(std::mutex& mutex, void (*inChild)());

} // namespace Pello
