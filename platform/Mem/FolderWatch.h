#pragma once

#include "Pello/Loop.h"
#include "Pello/String.h"

#include <functional>
#include <memory>

namespace Mem {

/// Tells of files that come, are replaced or go in a folder, from the loop of the thread that made
/// the watch, for as long as it lives. Changes that come together are told once, up to 100 ms late.
/// Where the kernel has no watch to give, the folder is looked at every 500 ms; where it has no
/// descriptor for a loop either, never.
class FolderWatch {
  public:
    /// `changed` may end the watch.
    FolderWatch(const Pello::String& folder, std::function<void()> changed);
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

  private:
    void drain();
    void fire();

    Pello::Loop::Ptr loop_;
    std::function<void()> changed_;
    int fd_ = -1;
    Pello::Loop::Handle watch_; ///< of the descriptor, or the timer in its place
    Pello::Loop::Handle settle_;
};

} // namespace Mem
