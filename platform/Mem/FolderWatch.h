#pragma once

#include "Pello/Loop.h"
#include "Pello/String.h"

#include <functional>
#include <memory>

namespace Mem {

/// Tells of files that come, are replaced or go in a folder, from the loop of the thread that made
/// the watch, for as long as it lives. Changes that come together are told once, `settle` after the
/// first of them. All watches of a thread share one descriptor of the kernel's. Where it has no
/// watch to give, the folder is looked at every 500 ms; where it has no descriptor for a loop
/// either, never.
class FolderWatch {
  public:
    /// `changed` may end the watch.
    FolderWatch(const Pello::String& folder, Pello::Loop::Delay settle,
                std::function<void()> changed);
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /// The folder has been removed, and nothing more will be told.
    bool ended() const { return ended_; }

  private:
    class Hub;

    void told();
    void fire();

    Pello::Loop::Ptr loop_;
    Pello::Loop::Delay settle_;
    std::function<void()> changed_;
    std::shared_ptr<Hub> hub_; ///< null where the folder is looked at instead
    int number_ = -1;          ///< of the watch in the hub
    bool ended_ = false;
    Pello::Loop::Handle settled_;
    Pello::Loop::Handle polled_;
};

} // namespace Mem
