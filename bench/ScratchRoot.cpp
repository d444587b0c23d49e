#include "ScratchRoot.h"

#include "Mem/RootPath.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace Bench {

ScratchRoot::ScratchRoot()
    : path_("/dev/shm/rsvp-vesk-bench.XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("cannot make " + path_);
    Mem::RootPath::baseIs(path_);
    // Some 600 MB of shared memory must not outlive an interrupted run. Removing files is nothing
    // for a signal handler, hence a thread that waits for the signals that all threads block.
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, number);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([this, signals] {
        int number = 0;
        sigwait(&signals, &number);
        remove();
        _exit(128 + number);
    }).detach();
}

ScratchRoot::~ScratchRoot() { remove(); }

void ScratchRoot::remove() const {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

} // namespace Bench
