#pragma once

// The file that says whose table it is. 512 bytes, every field little-endian:
//
//   offset  width  field
//        0      4  magic
//        4      4  format version
//        8      4  number of updates
//       12      4  CRC-32 of bytes 16 to 511
//       16      4  shared-memory type, 1 for a writer's table
//       20      4  1 when the table number is set
//       24      4  the table's number at the accept socket
//       32    128  type name, NUL-padded
//      160    108  accept socket name, NUL-padded; empty when no writer lives
//
// All other bytes are 0. Each update is one system call in place, so that a crash leaves the old or
// the new record, and a watcher sees a change. The checksum tells a reader that it met an update
// half done.

#include "Mem/RootPath.h"
#include "Pello/Debug.h"
#include "SharedMem/PloxetInfo.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace SharedMem {

enum class SharedMemType : std::uint32_t {
    none = 0,
    vesk = 1
};

class OwnerFile : public Pello::Debuggable {
  public:
    static constexpr const char* FILENAME = "owner";
    static constexpr std::size_t kSize = 512;

    /// With `local` the record lives in this object alone and is sound. Otherwise nothing is
    /// opened or made before it is needed; only `lock` makes the file.
    OwnerFile(std::shared_ptr<Pello::Platform::DebugHandler> handler,
              const Mem::OruRootPath& rootPath, bool local);
    ~OwnerFile();
    OwnerFile(const OwnerFile&) = delete;
    OwnerFile& operator=(const OwnerFile&) = delete;

    /// Takes the file's lock until destruction, waiting for whoever has it. An absent or empty
    /// file gets a sound empty record. Throws `InvalidInitializeException` when the file cannot
    /// be opened or locked.
    enum class Absent {
        isMade,
        isCorruption ///< throws `CorruptionDetectedException`
    };
    void lock(Absent absent = Absent::isMade);
    /// The lock found the file absent or empty.
    bool created() const { return created_; }

    bool validate() const;
    bool validate(Pello::String& why) const;
    /// Throws `CorruptionDetectedException` when the record is not sound.
    void validateFile() const;

    /// Throws `CorruptionDetectedException` when the record is not sound.
    PloxetInfo ploxetInfo() const;

    // Updates, under the lock. Throw `InvalidInitializeException` when the file cannot be written.
    void ploxetInfoIs(const PloxetInfo& info);
    void typeNameIs(const Pello::String& typeName);
    void sharedMemTypeIs(SharedMemType type);

    Pello::String headerToString() const;

  private:
    struct Record;

    Record read() const;
    template <class Change>
    void update(Change change);
    void write(const Record& record);

    Pello::String path_;
    bool local_;
    int fd_ = -1;
    bool created_ = false;
    std::array<std::byte, kSize> localImage_{};
};

} // namespace SharedMem
