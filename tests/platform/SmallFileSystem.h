#pragma once

// Exhausted memory for files, for real: a file system of a few pages.

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace TestSupport {

/// A tmpfs that is mounted where this process and its children alone see it, so that it is gone
/// with them however they end.
class SmallFileSystem {
  public:
    SmallFileSystem(const std::string& parent, std::size_t pages)
        : path_(parent + "/small") {
        std::filesystem::create_directory(path_);
        const std::string size = "size=" + std::to_string(pages * kPage);
        const bool ok = unshare(CLONE_NEWNS) == 0 &&
                        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                        mount("tmpfs", path_.c_str(), "tmpfs", 0, size.c_str()) == 0;
        if (!ok) problem_ = std::string("cannot mount a tmpfs: ") + std::strerror(errno);
    }
    ~SmallFileSystem() {
        if (problem_.empty()) umount2(path_.c_str(), MNT_DETACH);
    }
    SmallFileSystem(const SmallFileSystem&) = delete;
    SmallFileSystem& operator=(const SmallFileSystem&) = delete;

    /// Empty when it is mounted, else why not.
    const std::string& problem() const { return problem_; }
    const std::string& path() const { return path_; }

    /// Takes all its memory but that many pages.
    void leaveFree(std::size_t pages) {
        const std::string ballast = path_ + "/ballast";
        const int fd = open(ballast.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        struct statvfs status {};
        bool ok = fd >= 0 && fstatvfs(fd, &status) == 0 && status.f_bfree >= pages;
        if (ok && status.f_bfree > pages) {
            ok = posix_fallocate(fd, 0, static_cast<off_t>((status.f_bfree - pages) * kPage)) == 0;
        }
        close(fd);
        if (!ok) throw std::runtime_error("cannot leave pages free in " + path_);
    }

  private:
    static constexpr std::size_t kPage = 4096;

    std::string path_;
    std::string problem_;
};

} // namespace TestSupport
