#pragma once

// One writer per root path, by a lock that the kernel holds for the process and drops with it.
//
// The lock file is `<base>/.locks/<name>`, outside the table's folder, so that removing the table
// never removes the lock of a writer that came first. It is locked through an open file
// description (fcntl F_OFD_SETLK): opening and closing the file elsewhere in the process does not
// drop it. Its text says who holds it, for messages only; whether somebody does is the kernel's
// answer, and never that of a process id.
//
// A forked child holds nothing: its copies of the descriptors are closed at the fork.

#include "Mem/RootPath.h"
#include "Pello/Debug.h"
#include "SharedMem/OwnerFile.h"

#include <memory>
#include <sys/types.h>

namespace Mem {

class WriterLock {
  public:
    /// A right to the files of a root path; ends with this object.
    class Hold {
      public:
        explicit Hold(Pello::String path);
        ~Hold();
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

        /// False in a forked child, where the object is a mere copy.
        bool stands() const;

      private:
        Pello::String path_;
        pid_t process_;
    };

    /// Makes this process the only one that may change the files, for attaching a writer or,
    /// with `cleanup`, for removing them. Throws `InvalidInitializeException` that names the
    /// owner when another process is; also when a writer of this process is attached already.
    static std::unique_ptr<Hold> acquireWriterLock(const Pello::Platform::DebugHandler& handler,
                                                   const OruRootPath& rootPath,
                                                   const SharedMem::OwnerFile& ownerFile,
                                                   bool cleanup);

    /// True when an accept socket of that name is this process's own, or would be.
    static bool ownerIsMe(const Pello::Platform::DebugHandler& handler,
                          const Pello::String& socketName);

    /// True when the process behind an accept socket lives; `owner` becomes its command name.
    static bool ownerIsAlive(const Pello::Platform::DebugHandler& handler,
                             const Pello::String& socketName, Pello::String& owner);
};

} // namespace Mem
