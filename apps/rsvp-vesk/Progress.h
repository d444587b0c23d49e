#pragma once

#include "packets/CaptureFile.h"

#include <chrono>
#include <cstdint>

/// One line on the terminal that says how far the reading of a capture has come: rate, position and
/// the time that is left. Nothing is printed when standard error is no terminal, nor in the first
/// second.
class Progress {
  public:
    explicit Progress(const Packets::CaptureFile& capture);
    /// Removes the line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// So many frames have been read so far, those of earlier captures included.
    void framesAre(std::uint64_t frames);

  private:
    using Clock = std::chrono::steady_clock;

    const Packets::CaptureFile& capture_;
    bool terminal_;
    bool shown_ = false;
    Clock::time_point begin_;
    Clock::time_point next_;
    std::uint64_t before_ = 0; ///< frames at the first call
    bool counting_ = false;
};
