#include "Mem/Mapping.h"

#include "Mem/OwnFile.h"
#include "Mem/StopPoint.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Mem {

std::size_t pageSize_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));

namespace {

/// The machine's page, whatever `pageSize_` pretends.
std::uint64_t realPageSize() {
    static const auto size = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    return size;
}

void adviseDump(std::byte* base, std::uint64_t size, bool dumped) {
    if (base != nullptr) madvise(base, size, dumped ? MADV_DODUMP : MADV_DONTDUMP);
}

} // namespace

bool Mapping::load(std::span<const std::byte> image, std::uint64_t size) {
    detach();
    if (!attachAs(std::max<std::uint64_t>(image.size(), size))) return false;
    if (!image.empty()) std::memcpy(base_, image.data(), image.size());
    return true;
}

void Mapping::removeFile() const {
    stopAt(StopPoint::removeFile);
    unlink(name_.c_str());
}

Shared::Shared(const OruRootPath& rootPath, const Pello::String& fileName)
    : Mapping(rootPath.filePath(fileName)) {}

Shared::~Shared() { detach(); }

bool Shared::fail(const char* what, int errorNumber) {
    error_ = fmt::format("{}: {}", what, std::strerror(errorNumber));
    return false;
}

bool Shared::openFile(bool& created) {
    OwnFile file = OwnFile::open(name_, OwnFile::Absent::isMade, error_);
    created = file.created();
    fd_ = file.release();
    return fd_ >= 0;
}

bool Shared::reserve(std::uint64_t from, std::uint64_t to) {
    if (to <= from) return true;
    stopAt(StopPoint::reserveFile);
    const SizeLimitIsAnError guard;
    int result = 0;
    do {
        result = posix_fallocate(fd_, static_cast<off_t>(from), static_cast<off_t>(to - from));
    } while (result == EINTR);
    return result == 0 || fail("fallocate", result);
}

bool Shared::attachAs(std::uint64_t size) {
    detach();
    bool created = false;
    bool ok = openFile(created);
    struct stat status {};
    if (ok && fstat(fd_, &status) != 0) ok = fail("fstat", errno);
    const auto existing = static_cast<std::uint64_t>(status.st_size);
    const std::uint64_t wanted = std::max(existing, size);
    if (ok) {
        // A copied file may have holes below its size; they fault like a missing end would.
        const bool holes = static_cast<std::uint64_t>(status.st_blocks) * 512U < existing;
        ok = reserve(holes ? 0 : existing, wanted);
        if (!ok && !created && ftruncate(fd_, status.st_size) != 0) fail("ftruncate", errno);
    }
    if (ok) {
        void* const base = mmap(nullptr, wanted, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
        ok = base != MAP_FAILED || fail("mmap", errno);
        if (ok) {
            base_ = static_cast<std::byte*>(base);
            size_ = wanted;
            applyDump();
        }
    }
    if (ok) return true;
    if (created) unlink(name_.c_str());
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    return false;
}

bool Shared::resize(std::uint64_t size) {
    if (base_ == nullptr) {
        error_ = "not attached";
        return false;
    }
    const std::uint64_t old = size_;
    if (!reserve(old, size)) {
        if (ftruncate(fd_, static_cast<off_t>(old)) != 0) fail("ftruncate", errno);
        return false;
    }
    if (size != old) {
        void* const base = mremap(base_, old, size, MREMAP_MAYMOVE);
        if (base == MAP_FAILED) {
            fail("mremap", errno);
            if (size > old && ftruncate(fd_, static_cast<off_t>(old)) != 0) {
                fail("ftruncate", errno);
            }
            return false;
        }
        base_ = static_cast<std::byte*>(base);
        size_ = size;
        applyDump();
    }
    // The mapping ends before the file does, never the other way round.
    if (size < old) stopAt(StopPoint::truncateFile);
    if (size >= old || ftruncate(fd_, static_cast<off_t>(size)) == 0) return true;
    fail("ftruncate", errno);
    // Where it was, since the caller's pointers stay: it was told that nothing changed.
    if (mremap(base_, size, old, 0) == MAP_FAILED) return true; // a file too large is valid
    size_ = old;
    applyDump();
    return false;
}

void Shared::detach() {
    if (base_ != nullptr) munmap(base_, size_);
    if (fd_ >= 0) close(fd_);
    base_ = nullptr;
    size_ = 0;
    fd_ = -1;
}

std::uint64_t Shared::existingSize() const {
    struct stat status {};
    const int result = fd_ >= 0 ? fstat(fd_, &status) : stat(name_.c_str(), &status);
    return result == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

void Shared::dumpToCoreIs(bool dumped) {
    dumped_ = dumped;
    applyDump();
}

void Shared::applyDump() const { adviseDump(base_, size_, dumped_); }

Pello::String Shared::validateFile() const {
    struct stat named {};
    struct stat mapped {};
    if (lstat(name_.c_str(), &named) != 0) {
        return fmt::format("{}: {}", name_, std::strerror(errno));
    }
    if (!S_ISREG(named.st_mode)) return fmt::format("{}: not a regular file", name_);
    if (fd_ < 0 || fstat(fd_, &mapped) != 0 || named.st_dev != mapped.st_dev ||
        named.st_ino != mapped.st_ino) {
        return fmt::format("{}: not the file that is mapped", name_);
    }
    if (static_cast<std::uint64_t>(named.st_size) < size_) {
        return fmt::format("{}: size:{} wanted:{}", name_, named.st_size, size_);
    }
    return {};
}

Local::Local(Pello::String name, Source source)
    : Mapping(std::move(name))
    , source_(source) {}

Local::~Local() { detach(); }

bool Local::attachAs(std::uint64_t size) { return resize(std::max(size, size_)); }

bool Local::resize(std::uint64_t size) {
    if (size > std::numeric_limits<std::size_t>::max()) {
        error_ = std::strerror(ENOMEM);
        return false;
    }
    const bool ok = source_ == Source::heap ? resizeHeap(size) : resizePages(size);
    if (!ok) {
        error_ = std::strerror(ENOMEM);
        return false;
    }
    size_ = size;
    applyDump();
    return true;
}

bool Local::resizeHeap(std::uint64_t size) {
    // The allocator's 16-byte alignment is what the words and the wide copies ask for.
    auto* const base = static_cast<std::byte*>(std::realloc(base_, size));
    if (base == nullptr) return false;
    if (size > size_) std::memset(base + size_, 0, size - size_);
    base_ = base;
    return true;
}

bool Local::resizePages(std::uint64_t size) {
    const auto old = size_;
    void* const base = base_ == nullptr ? mmap(nullptr, size, PROT_READ | PROT_WRITE,
                                               MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                                        : mremap(base_, old, size, MREMAP_MAYMOVE);
    if (base == MAP_FAILED) return false;
    base_ = static_cast<std::byte*>(base);
    // Shrinking keeps the rest of the last page: a later growth must find it zero.
    if (size < old) {
        const std::uint64_t page = realPageSize();
        const std::uint64_t pageEnd = (size + page - 1) / page * page;
        std::memset(base_ + size, 0, std::min(pageEnd, old) - size);
    }
    return true;
}

void Local::detach() {
    if (base_ == nullptr) return;
    if (source_ == Source::heap) {
        std::free(base_);
    } else {
        munmap(base_, size_);
    }
    base_ = nullptr;
    size_ = 0;
}

void Local::dumpToCoreIs(bool dumped) {
    dumped_ = dumped;
    applyDump();
}

void Local::applyDump() const {
    if (source_ == Source::anonymous) adviseDump(base_, size_, dumped_);
}

SharedMemWrapper::SharedMemWrapper(const OruRootPath& rootPath, const Pello::String& fileName,
                                   Options options) {
    if (!options.local) {
        mapping_ = std::make_unique<Shared>(rootPath, fileName);
    } else {
        mapping_ = std::make_unique<Local>(rootPath.filePath(fileName),
                                           options.heapAlloc ? Local::Source::heap
                                                             : Local::Source::anonymous);
    }
}

} // namespace Mem
