#pragma once

#include "Pello/String.h"

namespace Zint {

/// The process's accept socket for readers that want to be woken: a local socket of sequenced
/// packets, `<base>/.ploxet/<pid>-<start time>`. Made on first use, removed at exit. Its name
/// identifies the process, and a connection to it succeeds as long as the process lives, also
/// where /proc shows other processes.
///
/// Nobody is admitted yet: readers find the tables by their files.
class PloxetAcceptSm {
  public:
    /// The calling process's; a forked child gets one of its own. Throws
    /// `InvalidInitializeException` when the socket cannot be made.
    static PloxetAcceptSm& ploxetAcceptSm();

    /// The last component of the socket's path.
    const Pello::String& socketName() const { return name_; }

    /// True when some process accepts connections under that name.
    static bool answers(const Pello::String& socketName);

    /// Removes the sockets that processes left behind which were killed.
    static void removeDead();

    ~PloxetAcceptSm();
    PloxetAcceptSm(const PloxetAcceptSm&) = delete;
    PloxetAcceptSm& operator=(const PloxetAcceptSm&) = delete;

  private:
    PloxetAcceptSm();
    void forget();

    Pello::String base_; ///< of all root paths when the socket was made
    Pello::String name_;
    Pello::String path_;
    int fd_ = -1;
};

} // namespace Zint
