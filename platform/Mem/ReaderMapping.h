#pragma once

#include "Mem/RootPath.h"
#include "Pello/String.h"

#include <cstddef>
#include <cstdint>

namespace Mem {

/// A file below a table's root path, mapped for reading only. A page that is truncated away reads
/// as zeros (Mem/BusGuard.h), until the next `resize`.
class ReaderMapping {
  public:
    ReaderMapping(const OruRootPath& rootPath, const Pello::String& fileName);
    ~ReaderMapping();
    ReaderMapping(const ReaderMapping&) = delete;
    ReaderMapping& operator=(const ReaderMapping&) = delete;

    /// Opens the file and maps its first bytes, which need not all be there. On failure nothing is
    /// open, and `error()` says why.
    bool attach(std::uint64_t size);
    /// Maps that many bytes of the open file anew. On failure nothing is mapped.
    bool resize(std::uint64_t size);
    void detach();

    /// The size of the open file now; of the file that the name leads to when none is open.
    std::uint64_t fileSize() const;

    bool isOpen() const { return fd_ >= 0; }
    /// A page that is mapped was truncated away when it was read, and reads as zeros since.
    bool patched() const;

    const Pello::String& name() const { return name_; }
    const std::byte* base() const { return base_; }
    std::uint64_t size() const { return size_; }
    const Pello::String& error() const { return error_; }
    /// For the memory tracker.
    const ReaderMapping* get() const { return this; }

  private:
    bool map(std::uint64_t size);

    Pello::String name_;
    Pello::String error_;
    int fd_ = -1;
    const std::byte* base_ = nullptr;
    std::uint64_t size_ = 0;
};

} // namespace Mem
