#pragma once

#include "Pello/String.h"

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>

namespace Mem {

/// A descriptor of a file that this process may write. Closed at the end of the scope.
class OwnFile {
  public:
    OwnFile() = default;
    ~OwnFile();
    OwnFile(OwnFile&& other) noexcept;
    OwnFile& operator=(OwnFile&& other) noexcept;
    OwnFile(const OwnFile&) = delete;
    OwnFile& operator=(const OwnFile&) = delete;

    /// For a look at a small file of a table that need not be one's own: no link is followed, and
    /// nothing that stands in the file's place makes the opener wait.
    static constexpr int kReadFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

    enum class Absent : std::uint8_t {
        isMade,
        isError
    };

    /// Opens a file for reading and writing, and makes it when it may be absent, with mode 0644
    /// whatever the umask. Takes nobody else's: symbolic links, what is no regular file, and what
    /// belongs to another user is refused. The descriptor is above those of the standard streams:
    /// in a process that was started with these closed, whoever prints would print into a table.
    /// On failure nothing is open, and `error` has the reason, beginning with what failed.
    static OwnFile open(const Pello::String& path, Absent absent, Pello::String& error);

    bool isOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    /// This very call made the file.
    bool created() const { return created_; }
    /// Hands the descriptor over.
    int release();

  private:
    int fd_ = -1;
    bool created_ = false;
};

/// While it lives, what this thread writes beyond the limit of file sizes (RLIMIT_FSIZE) fails with
/// EFBIG, as an error of the write, and no SIGXFSZ ends the process.
class SizeLimitIsAnError {
  public:
    SizeLimitIsAnError();
    ~SizeLimitIsAnError();
    SizeLimitIsAnError(const SizeLimitIsAnError&) = delete;
    SizeLimitIsAnError& operator=(const SizeLimitIsAnError&) = delete;

  private:
    sigset_t before_; ///< the signals that the thread blocked
    bool isPending_;  ///< one was sent earlier, for somebody else
};

/// Writes all the bytes at the beginning of the file. 0, or the errno of the write that failed.
int writeWhole(int fd, const void* bytes, std::size_t size);

/// Locks the whole file for this open file description (fcntl F_OFD_SETLK); with `wait` as soon as
/// whoever has the lock lets it go. False with `errno` on failure.
bool lockWhole(int fd, bool wait);

/// Whether the path still leads to the open file.
bool leadsTo(const Pello::String& path, int fd);

} // namespace Mem
