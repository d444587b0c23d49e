#include "Process.h"

#include "Pello/Time.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace TestSupport {

Process::Process(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    std::signal(SIGPIPE, SIG_IGN); // one that is gone gets no more commands
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    to_ = in[1];
    from_ = out[0];
}

Process::~Process() {
    kill(SIGKILL);
    end();
    close(from_);
}

void Process::send(const std::string& line) const {
    const std::string text = line + '\n';
    // A process that is gone answers nothing, and its code says why.
    if (write(to_, text.data(), text.size()) < 0 && errno != EPIPE)
        throw std::runtime_error("send");
}

std::string Process::line(double seconds) {
    const double limit = Pello::time() + seconds;
    std::string text;
    while (true) {
        pollfd from{from_, POLLIN, 0};
        const double left = std::max(0.0, limit - Pello::time());
        if (poll(&from, 1, static_cast<int>(left * 1e3)) == 0) {
            throw std::runtime_error("no answer in time");
        }
        char octet = 0;
        if (read(from_, &octet, 1) != 1 || octet == '\n') return text;
        text += octet;
    }
}

void Process::end() {
    if (to_ >= 0) close(to_);
    to_ = -1;
}

void Process::signal(int number) const {
    if (pid_ != 0) ::kill(pid_, number);
}

void Process::kill(int number) {
    signal(number);
    if (pid_ != 0) waitpid(pid_, nullptr, 0);
    pid_ = 0;
}

int Process::code(double seconds) {
    const double limit = Pello::time() + seconds;
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
        if (Pello::time() > limit) return -1;
        usleep(2000);
    }
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

} // namespace TestSupport
