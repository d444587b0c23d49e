#pragma once

#include "Mem/RootPath.h"
#include "Pello/Debug.h"
#include "SharedMem/RavoId.h"

namespace SharedMem {

/// The file that keeps a table's identity over restarts of its writer: 4096 bytes, the first 16
/// of them {magic, id, ~id, format}. It is written in place by one system call, so that whoever
/// maps it or watches it sees the change.
class RavoFile {
  public:
    static constexpr const char* RAVO_NAME = "ravo";

    /// With `local` the identity lives in this object alone.
    RavoFile(Pello::Platform::DebugHandler& handler, const Mem::OruRootPath& rootPath, bool local);

    /// The stored identity; the none identity when the file is absent, short or garbled.
    RavoId read() const;
    /// Throws `InvalidInitializeException` when the file cannot be written in full.
    void write(RavoId id);
    /// Throws `CorruptionDetectedException` unless the stored identity is `id`.
    void validate(RavoId id) const;
    /// Seconds since 1970 of the last change; 0 when there is no file.
    double mtime() const;

  private:
    Pello::String path_;
    bool local_;
    RavoId localId_;
};

} // namespace SharedMem
