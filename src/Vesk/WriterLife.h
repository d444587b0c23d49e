#pragma once

// How a writer comes by its files: it makes sure that it is the only one, takes over what an
// earlier writer left when that is sound, formats it anew when it is not, and says in the owner
// file that the table is its own. Independent of what the table stores. docs/recovery.md has the
// decisions.

#include "Mem/RootPath.h"
#include "Mem/WriterLock.h"
#include "Pello/Debug.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/RavoFile.h"
#include "SharedMem/RavoId.h"

#include <cstdint>
#include <memory>
#include <optional>

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
    /// The table's number at the process's accept socket; nothing for a table without a queue.
    virtual std::optional<std::uint32_t> tableId() const = 0;
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
    /// `classType` is the type name that the owner file shows.
    WriterLife(std::shared_ptr<Pello::Platform::DebugHandler> handler, WriterParts& parts,
               const Mem::OruRootPath& rootPath, bool localMem, Pello::String classType);

    /// Makes the table usable or throws; what a failed first attach made is removed again. A
    /// table that has a living writer is refused and stays as it is, to the byte.
    void attach();
    /// Removes the table's files, those of a table in process memory's namesake too. Throws
    /// `InvalidInitializeException` that names the owner when that is another process.
    void cleanup();
    /// Takes this process's name out of the owner file. Called by destructors: never throws.
    void disown();
    /// Lets another writer come. After the parts were detached.
    void release() { hold_.reset(); }
    bool owner() const { return owner_; }
    bool ownerFileSound() const;
    /// Throws `CorruptionDetectedException` when the owner file is not sound.
    void validateOwnerFile() const;
    /// Traces the table dump at level 0.
    void traceDump(const char* operation) const;

    SharedMem::RavoId ravoId() const { return ravoId_; }
    bool localMem() const { return localMem_; }

  private:
    void attachFiles(SharedMem::OwnerFile& ownerFile);
    bool attachParts();
    bool attachAndValidate(bool reformat, SharedMem::OwnerFile& ownerFile,
                           const SharedMem::PloxetInfo& ploxetInfo);
    [[noreturn]] void raiseStrict();
    void removeFiles();
    void removeWhatWasMade(const SharedMem::OwnerFile& owner) const;
    void clearPloxetInfo(SharedMem::OwnerFile& owner);
    /// Runs a step on the owner file that must not throw.
    template <class Step>
    void guarded(Step step) const;
    SharedMem::OwnerFile ownerFile(bool local) const { return {debugHandler(), rootPath_, local}; }

    WriterParts& parts_;
    const Mem::OruRootPath& rootPath_;
    bool localMem_;
    Pello::String classType_;
    SharedMem::RavoId ravoId_;
    bool owner_ = false; ///< this writer wrote the owner file and found it sound afterwards
    std::unique_ptr<Mem::WriterLock::Hold> hold_;
};

} // namespace Vesk
