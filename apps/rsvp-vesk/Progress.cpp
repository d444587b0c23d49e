#include "Progress.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace {

/// Back to the begin of the line, and the line empty (ECMA-48, EL).
constexpr const char* kClear = "\r\033[K";

std::string duration(double seconds) {
    const auto whole = std::llround(seconds);
    if (whole < 60) return fmt::format("{} s", whole);
    return fmt::format("{}:{:02} min", whole / 60, whole % 60);
}

} // namespace

Progress::Progress(const Packets::CaptureFile& capture)
    : capture_(capture)
    , terminal_(isatty(STDERR_FILENO) != 0)
    , begin_(Clock::now())
    , next_(begin_ + std::chrono::seconds(1)) {}

Progress::~Progress() {
    if (shown_) std::cerr << kClear << std::flush;
}

void Progress::framesAre(std::uint64_t frames) {
    if (!terminal_) return;
    if (!counting_) {
        counting_ = true;
        before_ = frames;
    }
    const Clock::time_point now = Clock::now();
    if (now < next_) return;
    next_ = now + std::chrono::milliseconds(500);
    shown_ = true;
    const double elapsed = std::chrono::duration<double>(now - begin_).count();
    const auto read = static_cast<double>(frames - before_);
    std::cerr << kClear
              << fmt::format("{}: {:.1f} million frames, {:.2f} million/s",
                             capture_.path().filename().string(), read / 1e6, read / elapsed / 1e6);
    if (capture_.size() != 0 && capture_.position() != 0) {
        const double part =
            static_cast<double>(capture_.position()) / static_cast<double>(capture_.size());
        std::cerr << fmt::format(", {:.0f} %, {} left", part * 100,
                                 duration(elapsed * (1 - part) / part));
    }
    std::cerr << std::flush;
}
