#pragma once

#include <string>

namespace Bench {

/// A fresh folder in shared memory that becomes the base of all root paths. It goes with this
/// object, and also when the process is interrupted or terminated by a signal. One per process,
/// made before any other thread.
class ScratchRoot {
  public:
    ScratchRoot();
    ~ScratchRoot();
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;

    std::string file(const std::string& name) const { return path_ + "/" + name; }

  private:
    void remove() const;

    std::string path_;
};

} // namespace Bench
