#pragma once

/// Turns SIGTERM and SIGINT of the process into a request that is asked for. For as long as it
/// lives the signals have no other effect.
class StopSignal {
  public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// One of them has come.
    bool requested();
    /// Readable when one has come and was not asked for yet.
    int fd() const { return fd_; }
    /// Turns the thread's loop until one has come.
    void wait();

  private:
    int fd_;
    bool requested_ = false;
};
