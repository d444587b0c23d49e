#include "StopSignal.h"

#include "Pello/Loop.h"

#include <cerrno>
#include <csignal>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace {

sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    return signals;
}

} // namespace

StopSignal::StopSignal() {
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    fd_ = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
}

StopSignal::~StopSignal() {
    requested(); // takes what is pending: unblocked it would end the process
    close(fd_);
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

bool StopSignal::requested() {
    signalfd_siginfo info{};
    while (read(fd_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        requested_ = true;
    }
    return requested_;
}

void StopSignal::wait() {
    const Pello::Loop::Ptr loop = Pello::Loop::ofThisThread();
    const Pello::Loop::Handle watch = loop->watchFd(fd_, EPOLLIN, [this](auto) { requested(); });
    while (!requested()) {
        loop->runOnce(-1);
    }
}
