#include "Mem/ReaderMapping.h"

#include "Mem/BusGuard.h"
#include "Mem/OwnFile.h"

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Mem {

ReaderMapping::ReaderMapping(const OruRootPath& rootPath, const Pello::String& fileName)
    : name_(rootPath.filePath(fileName)) {}

ReaderMapping::~ReaderMapping() { detach(); }

bool ReaderMapping::attach(std::uint64_t size) {
    detach();
    fd_ = open(name_.c_str(), OwnFile::kReadFlags);
    if (fd_ < 0) {
        error_ = fmt::format("open: {}", std::strerror(errno));
        return false;
    }
    if (map(size)) return true;
    detach();
    return false;
}

bool ReaderMapping::resize(std::uint64_t size) {
    const std::byte* const old = std::exchange(base_, nullptr);
    const std::uint64_t oldSize = std::exchange(size_, 0);
    // The new range first: who compares addresses sees that the range has moved. Never by moving
    // the old one, which the guard may have split into several.
    const bool mapped = fd_ >= 0 && map(size);
    if (old != nullptr) {
        BusGuard::remove(old);
        munmap(const_cast<std::byte*>(old), oldSize);
    }
    return mapped;
}

bool ReaderMapping::map(std::uint64_t size) {
    void* const base = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd_, 0);
    if (base == MAP_FAILED) {
        error_ = fmt::format("mmap: {}", std::strerror(errno));
        return false;
    }
    if (!BusGuard::add(static_cast<std::byte*>(base), size)) {
        munmap(base, size);
        error_ = "too many files are mapped for reading";
        return false;
    }
    base_ = static_cast<std::byte*>(base);
    size_ = size;
    return true;
}

void ReaderMapping::detach() {
    if (base_ != nullptr) {
        BusGuard::remove(base_);
        munmap(const_cast<std::byte*>(base_), size_);
    }
    if (fd_ >= 0) close(fd_);
    base_ = nullptr;
    size_ = 0;
    fd_ = -1;
}

bool ReaderMapping::patched() const { return base_ != nullptr && BusGuard::wasPatched(base_); }

std::uint64_t ReaderMapping::fileSize() const {
    struct stat status {};
    const int result = fd_ >= 0 ? fstat(fd_, &status) : stat(name_.c_str(), &status);
    return result == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

} // namespace Mem
