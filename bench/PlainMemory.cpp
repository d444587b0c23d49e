#include "PlainMemory.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Bench {

namespace {

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

} // namespace

MappedFile::MappedFile(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (fd < 0 || fstat(fd, &status) != 0) fail(path);
    size_ = static_cast<std::size_t>(status.st_size);
    map(fd, PROT_READ);
}

MappedFile::MappedFile(const std::string& path, std::size_t size)
    : size_(size) {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0 || ftruncate(fd, static_cast<off_t>(size)) != 0) fail(path);
    map(fd, PROT_READ | PROT_WRITE);
}

MappedFile::~MappedFile() { munmap(base_, size_); }

void MappedFile::map(int fd, int protection) {
    void* const base = mmap(nullptr, size_, protection, MAP_SHARED, fd, 0);
    close(fd);
    if (base == MAP_FAILED) fail("mmap");
    base_ = static_cast<std::byte*>(base);
}

} // namespace Bench
