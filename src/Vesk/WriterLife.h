#pragma once

// How a writer comes by its files: it takes over what an earlier writer left when that is sound,
// and formats it anew when it is not. Independent of what the table stores.

#include "Mem/RootPath.h"
#include "Pello/Debug.h"
#include "SharedMem/RavoFile.h"
#include "SharedMem/RavoId.h"

#include <cstdint>

namespace Vesk {

/// What `WriterLife` needs of the files that make up a table. Attach results: 1 a new file, 2 an
/// existing one, 4 an existing one that was formatted anew, 0 none of these.
class WriterParts {
  public:
    virtual ~WriterParts() = default;
    virtual void resetCounters() = 0;
    virtual unsigned attachSlots(SharedMem::RavoId id) = 0;
    virtual unsigned attachBuckets(SharedMem::RavoId id) = 0;
    /// Absent for a table without a queue: 1, which says nothing about files.
    virtual unsigned attachTorvu(SharedMem::RavoId id, unsigned slotCode) = 0;
    virtual bool hasTorvu() const = 0;
    virtual bool validateTable(SharedMem::RavoId id) = 0;
    virtual bool filesExist() const = 0;
    virtual void detachFiles() = 0;
    virtual void removeFiles() = 0;
    virtual void dumpToCore() = 0;
    /// Name, slot header and bucket header as text.
    virtual Pello::String dumpText() const = 0;
    virtual std::uint32_t tableCapacity() const = 0;
};

/// The take-over and recovery procedure of one writer.
class WriterLife : public Pello::Debuggable {
  public:
    WriterLife(std::shared_ptr<Pello::Platform::DebugHandler> handler, WriterParts& parts,
               const Mem::OruRootPath& rootPath, bool localMem);

    /// Makes the table usable or throws; what a failed first attach made is removed again.
    void attach();
    void removeFiles();
    /// Traces the table dump at level 0.
    void traceDump(const char* operation) const;

    SharedMem::RavoId ravoId() const { return ravoId_; }
    bool localMem() const { return localMem_; }

  private:
    void attachFiles();
    bool attachParts();
    bool attachAndValidate(bool reformat);

    WriterParts& parts_;
    const Mem::OruRootPath& rootPath_;
    bool localMem_;
    SharedMem::RavoId ravoId_;
};

} // namespace Vesk
