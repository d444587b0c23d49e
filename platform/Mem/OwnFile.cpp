#include "Mem/OwnFile.h"

#include "Mem/StopPoint.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Mem {

namespace {

constexpr mode_t kFileMode = 0644;

int openAboveStreams(const char* path, int flags) {
    constexpr int kFirstFree = 3;
    const int fd = open(path, flags, kFileMode);
    if (fd < 0 || fd >= kFirstFree) return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, kFirstFree);
    const int error = errno;
    close(fd);
    errno = error;
    return moved;
}

} // namespace

OwnFile::~OwnFile() {
    if (fd_ >= 0) close(fd_);
}

OwnFile::OwnFile(OwnFile&& other) noexcept
    : fd_(std::exchange(other.fd_, -1))
    , created_(other.created_) {}

OwnFile& OwnFile::operator=(OwnFile&& other) noexcept {
    std::swap(fd_, other.fd_);
    std::swap(created_, other.created_);
    return *this;
}

int OwnFile::release() { return std::exchange(fd_, -1); }

OwnFile OwnFile::open(const Pello::String& path, Absent absent, Pello::String& error) {
    constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const auto fail = [&error](const char* what) {
        error = fmt::format("{}: {}", what, std::strerror(errno));
        return OwnFile();
    };
    OwnFile file;
    file.fd_ = openAboveStreams(path.c_str(), kFlags);
    if (file.fd_ < 0 && errno == ENOENT && absent == Absent::isMade) {
        stopAt(StopPoint::makeFile);
        file.fd_ = openAboveStreams(path.c_str(), kFlags | O_CREAT | O_EXCL);
        file.created_ = file.fd_ >= 0;
        // Somebody else was faster.
        if (file.fd_ < 0 && errno == EEXIST) file.fd_ = openAboveStreams(path.c_str(), kFlags);
    }
    if (file.fd_ < 0) return fail("open");
    if (file.created_ && fchmod(file.fd_, kFileMode) != 0) return fail("fchmod");
    struct stat status {};
    if (fstat(file.fd_, &status) != 0) return fail("fstat");
    if (!S_ISREG(status.st_mode)) {
        error = "not a regular file";
        return {};
    }
    if (status.st_uid != geteuid()) {
        error = fmt::format("belongs to user {}", status.st_uid);
        return {};
    }
    return file;
}

SizeLimitIsAnError::SizeLimitIsAnError() {
    sigset_t pending;
    sigpending(&pending);
    isPending_ = sigismember(&pending, SIGXFSZ) == 1;
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &blocked, &before_);
}

SizeLimitIsAnError::~SizeLimitIsAnError() {
    if (!isPending_) {
        sigset_t mine;
        sigemptyset(&mine);
        sigaddset(&mine, SIGXFSZ);
        const timespec now{};
        while (sigtimedwait(&mine, nullptr, &now) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

int writeWhole(int fd, const void* bytes, std::size_t size) {
    const SizeLimitIsAnError guard;
    std::size_t written = 0;
    while (written < size) {
        const ssize_t n = pwrite(fd, static_cast<const char*>(bytes) + written, size - written,
                                 static_cast<off_t>(written));
        if (n == 0) return ENOSPC;
        if (n < 0 && errno != EINTR) return errno;
        written += n < 0 ? 0U : static_cast<std::size_t>(n);
    }
    return 0;
}

bool lockWhole(int fd, bool wait) {
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    int result = 0;
    do {
        result = fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &whole);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool leadsTo(const Pello::String& path, int fd) {
    struct stat opened {};
    struct stat named {};
    return fstat(fd, &opened) == 0 && stat(path.c_str(), &named) == 0 &&
           opened.st_ino == named.st_ino && opened.st_dev == named.st_dev;
}

} // namespace Mem
