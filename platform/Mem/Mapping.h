#pragma once

// One contiguous range of memory that grows, shrinks and may move while doing so: a file that other
// processes map too, or memory of this process alone behind the same interface.
//
// Operations that need memory report failure by `false`, with the reason in `error()`, and then
// leave base, size and content as they were. A writer's file never has holes: memory is reserved
// before it is used, so that a full file system is an error of the operation that needed the space
// and never a bus error of a later store.

#include "Mem/RootPath.h"
#include "Pello/String.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <sys/types.h>

namespace Mem {

/// Bytes of a page of memory; tests may pretend another size.
extern std::size_t pageSize_;

class Mapping {
  public:
    virtual ~Mapping() = default;
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    /// The writer's attach: makes what is absent, never truncates. Afterwards `size()` is the
    /// larger of `size` and what existed before, all of it usable.
    virtual bool attachAs(std::uint64_t size) = 0;
    /// Changes the size; `base()` may differ afterwards. New bytes are zero.
    virtual bool resize(std::uint64_t size) = 0;
    virtual void detach() = 0;

    /// Bytes that an `attachAs` would find now; 0 when there is nothing.
    virtual std::uint64_t existingSize() const = 0;
    /// Attaches as large as an image, at least `size`, and takes its bytes over. For memory that no
    /// other process sees. On failure false, with nothing attached.
    bool load(std::span<const std::byte> image, std::uint64_t size);
    /// Removes the file that `name()` leads to, which for process memory is that of its namesake in
    /// shared memory. The mapping itself stays usable.
    void removeFile() const;
    /// Whether core dumps of this process include the range, now and after every remap.
    virtual void dumpToCoreIs(bool dumped) = 0;
    /// Empty when the file that `name()` leads to is the mapped one, a regular file, and at least
    /// as large as the mapping; otherwise what is wrong.
    virtual Pello::String validateFile() const = 0;

    const Pello::String& name() const { return name_; }
    std::byte* base() const { return base_; }
    std::uint64_t size() const { return size_; }
    const Pello::String& error() const { return error_; }

  protected:
    explicit Mapping(Pello::String name)
        : name_(std::move(name)) {}

    Pello::String name_;
    Pello::String error_;
    std::byte* base_ = nullptr;
    std::uint64_t size_ = 0;
};

/// A file below a table's root path, mapped shared and writable. The file is 0644: everybody may
/// read, only the owner writes.
class Shared final : public Mapping {
  public:
    Shared(const OruRootPath& rootPath, const Pello::String& fileName);
    ~Shared() override;

    bool attachAs(std::uint64_t size) override;
    bool resize(std::uint64_t size) override;
    void detach() override;
    std::uint64_t existingSize() const override;
    void dumpToCoreIs(bool dumped) override;
    Pello::String validateFile() const override;

  private:
    bool fail(const char* what, int errorNumber);
    bool openFile(bool& created);
    bool reserve(std::uint64_t from, std::uint64_t to);
    void applyDump() const;

    int fd_ = -1;
    bool dumped_ = false;
};

/// Memory of this process alone, from the heap or from anonymous pages.
class Local final : public Mapping {
  public:
    enum class Source {
        heap,
        anonymous
    };

    Local(Pello::String name, Source source);
    ~Local() override;

    bool attachAs(std::uint64_t size) override;
    bool resize(std::uint64_t size) override;
    void detach() override;
    std::uint64_t existingSize() const override { return size_; }
    void dumpToCoreIs(bool dumped) override;
    Pello::String validateFile() const override { return {}; }

  private:
    bool resizeHeap(std::uint64_t size);
    bool resizePages(std::uint64_t size);
    void applyDump() const;

    Source source_;
    bool dumped_ = true;
};

/// The mapping of one file of a writer, in shared memory or, with `local`, in process memory.
class SharedMemWrapper {
  public:
    struct Options {
        bool local = false;
        bool heapAlloc = false;
    };

    SharedMemWrapper(const OruRootPath& rootPath, const Pello::String& fileName, Options options);

    Mapping* operator->() const { return mapping_.get(); }
    Mapping* get() const { return mapping_.get(); }

  private:
    std::unique_ptr<Mapping> mapping_;
};

} // namespace Mem
