#pragma once

// A process of a test: told what to do by lines on its standard input, it answers by lines on its
// standard output. It is killed with the object, or when the test dies.

#include <string>
#include <sys/types.h>
#include <vector>

namespace TestSupport {

class Process {
  public:
    /// The program and its arguments.
    explicit Process(const std::vector<std::string>& command);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void send(const std::string& line) const;
    /// The next line of it; empty when the process is gone. Throws when none comes in time.
    std::string line(double seconds = 60);
    /// The answer to a command.
    std::string tell(const std::string& command, double seconds = 60) {
        send(command);
        return line(seconds);
    }
    /// Ends its standard input.
    void end();
    void signal(int number) const;
    /// Sends a signal and waits for the end.
    void kill(int number);
    /// The exit code; 1000 and the signal that ended it; -1 when it does not end in time.
    int code(double seconds);
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = 0; ///< 0 when it has been waited for
    int to_ = -1;
    int from_ = -1;
};

} // namespace TestSupport
