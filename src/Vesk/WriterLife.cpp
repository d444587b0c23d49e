#include "Vesk/WriterLife.h"

#include "Mem/Clone.h"
#include "Pello/Util.h"
#include "Vesk/Util.h"
#include "Zint/PloxetAcceptSm.h"

#include <atomic>
#include <unistd.h>
#include <utility>

namespace Vesk {

namespace {

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"VeskWriter", "Vesk/VeskWriter", operation, line};
}

/// A fresh identity: this process, and a generation that no other table of this process has.
SharedMem::RavoId newIdentity() {
    static std::atomic<std::uint16_t> generation{0};
    SharedMem::RavoId id;
    while (id == SharedMem::RavoId()) {
        id = SharedMem::RavoId(static_cast<std::uint16_t>(getpid()), generation++);
    }
    return id;
}

} // namespace

WriterLife::WriterLife(std::shared_ptr<Pello::Platform::DebugHandler> handler, WriterParts& parts,
                       const Mem::OruRootPath& rootPath, bool localMem, Pello::String classType)
    : Debuggable(std::move(handler))
    , parts_(parts)
    , rootPath_(rootPath)
    , localMem_(localMem)
    , classType_(std::move(classType)) {}

void WriterLife::attach() {
    PELLO_TRACE(*this, 5, tagOf("attach"), "localMem_:{} rootPath:{}", localMem_, rootPath_);
    SharedMem::OwnerFile owner = ownerFile(localMem_);
    if (localMem_) {
        attachFiles(owner);
        return;
    }
    rootPath_.makeFolder();
    try {
        owner.lock();
        if (!hold_ || !hold_->stands()) { // kept by an attempt that failed
            hold_ = Mem::WriterLock::acquireWriterLock(*debugHandler(), rootPath_, owner, false);
        }
    } catch (...) {
        removeWhatWasMade(owner);
        throw;
    }
    // Asked as the only writer.
    const bool hadTable = parts_.filesExist();
    const bool hadIdentity = rootPath_.hasFile(SharedMem::RavoFile::RAVO_NAME);
    try {
        attachFiles(owner);
    } catch (...) {
        if (std::exchange(owner_, false)) guarded([&] { clearPloxetInfo(owner); });
        // Files that were there stay mapped, and locked: a core dump shall show what was wrong
        // with them.
        if (!hadTable) {
            parts_.detachFiles();
            parts_.removeFiles();
        }
        if (!hadIdentity) rootPath_.removeFile(SharedMem::RavoFile::RAVO_NAME);
        removeWhatWasMade(owner);
        if (!hadTable) hold_.reset();
        throw;
    }
}

void WriterLife::removeWhatWasMade(const SharedMem::OwnerFile& owner) const {
    if (owner.created()) rootPath_.removeFile(SharedMem::OwnerFile::FILENAME);
    rootPath_.removeEmptyFolders();
}

void WriterLife::attachFiles(SharedMem::OwnerFile& ownerFile) {
    SharedMem::RavoFile ravoFile(*debugHandler(), rootPath_, localMem_);
    SharedMem::PloxetInfo ploxetInfo;
    if (localMem_) {
        ravoId_ = SharedMem::RavoId(static_cast<std::uint16_t>(getpid()), 0);
    } else {
        ploxetInfo.socketNameIs(Zint::PloxetAcceptSm::ploxetAcceptSm().socketName());
        ploxetInfo.tableId = parts_.tableId();
        const SharedMem::RavoId stored = ravoFile.read();
        ravoId_ = stored != SharedMem::RavoId() ? stored : newIdentity();
    }
    const bool reformat = !ownerFile.validate();
    if (reformat) {
        PELLO_TRACE(*this, 1, tagOf("attach"),
                    "owner file validation failed, dumping owner file string: {}",
                    ownerFile.headerToString());
    }
    ownerFile.typeNameIs(classType_);
    ownerFile.sharedMemTypeIs(SharedMem::SharedMemType::vesk);
    if (!attachAndValidate(reformat, ownerFile, ploxetInfo)) {
        if (reformat) {
            Pello::fatal(debugHandler().get(), tagOf("attach"),
                         "failed to attach to and validate new files");
        }
        attachAndValidate(true, ownerFile, ploxetInfo);
    }
    // The marker may be that of a namesake in shared memory.
    if (!localMem_) rootPath_.removeFile(Util::CORRUPTION_FILENAME);
    ravoFile.write(ravoId_);
    if (!localMem_) {
        PELLO_TRACE(*this, 1, tagOf("attach"),
                    "success {} capacity:{} ravoId:{} mtime:{} ploxetInfo:{}", rootPath_,
                    parts_.tableCapacity(), ravoId_, ravoFile.mtime(), ownerFile.ploxetInfo());
    }
}

bool WriterLife::attachAndValidate(bool reformat, SharedMem::OwnerFile& ownerFile,
                                   const SharedMem::PloxetInfo& ploxetInfo) {
    const char* const operation = "attachAndValidate";
    const auto traceFailure = [&](const char* what) {
        PELLO_TRACE(*this, 0, tagOf(operation), "{}", what);
        traceDump(operation);
        PELLO_TRACE(*this, 0, tagOf(operation), "owner file: {}", ownerFile.headerToString());
        return false;
    };
    if (reformat) {
        PELLO_TRACE(*this, 1, tagOf(operation), "all entries from {} will be lost", rootPath_);
        ravoId_ = ravoId_.nextGeneration();
        attachParts();
        if (!parts_.validateTable(ravoId_)) {
            Pello::raise<Pello::InvalidInitializeException>(tagOf(operation), "failed validation");
        }
    } else {
        if (!attachParts()) return traceFailure("failed to attach to existing files");
        if (!parts_.validateTable(ravoId_)) {
            if (Util::runningOnPhysicalDut() && Util::strictValidation()) raiseStrict();
            return traceFailure("failed to validate existing files");
        }
    }
    if (localMem_) return true;
    ownerFile.ploxetInfoIs(ploxetInfo);
    if (Pello::String why; !ownerFile.validate(why)) {
        Pello::fatal(debugHandler().get(), tagOf(operation),
                     "wrote to owner file but validation failed: {}", why);
    }
    owner_ = true;
    if (reformat) PELLO_TRACE(*this, 1, tagOf(operation), "re-formatted successfully");
    return true;
}

void WriterLife::raiseStrict() {
    rootPath_.removeFile(SharedMem::RavoFile::RAVO_NAME);
    parts_.dumpToCore();
    Pello::Util::includeShmemInCore();
    Pello::raise<Pello::InvalidInitializeException>(
        tagOf("attachAndValidate"), "failed initial validation of {} after re-attaching",
        rootPath_);
}

bool WriterLife::attachParts() {
    const char* const operation = "attach";
    parts_.resetCounters();
    const unsigned slots = parts_.attachSlots(ravoId_);
    PELLO_TRACE(*this, 2, tagOf(operation), "slotsAttached:{}", slots);
    if (slots == 0) Pello::fatal(debugHandler().get(), tagOf(operation), "Invalid slot attach");
    const unsigned map = parts_.attachBuckets(ravoId_);
    PELLO_TRACE(*this, 2, tagOf(operation), "mapAttached:{}", map);
    if (map == 0) Pello::fatal(debugHandler().get(), tagOf(operation), "Invalid map attach");
    unsigned all = slots | map;
    const unsigned torvu = parts_.attachTorvu(ravoId_, slots);
    PELLO_TRACE(*this, 2, tagOf(operation), "torvuAttached:{}", torvu);
    if (parts_.hasTorvu()) {
        if (torvu == 0) {
            Pello::fatal(debugHandler().get(), tagOf(operation), "Invalid torvu attach");
        }
        all |= torvu;
    }
    return all == 1 || all == 2;
}

void WriterLife::cleanup() {
    PELLO_TRACE(*this, 5, tagOf("cleanup"), "owner:{} localMem_:{} rootPath:{}", owner_, localMem_,
                rootPath_);
    if (!rootPath_.exists()) return;
    rootPath_.checkFolders();
    SharedMem::OwnerFile owner = ownerFile(false);
    std::unique_ptr<Mem::WriterLock::Hold> hold;
    try {
        owner.lock();
        if (!hold_ || !hold_->stands()) {
            hold = Mem::WriterLock::acquireWriterLock(*debugHandler(), rootPath_, owner, true);
        }
    } catch (...) {
        removeWhatWasMade(owner);
        throw;
    }
    owner_ = owner.validate();
    if (!owner_) {
        PELLO_TRACE(*this, 1, tagOf("cleanup"),
                    "owner file corruption detected but continuing with cleanup, dumped owner "
                    "file: {}",
                    owner.headerToString());
    }
    removeFiles();
}

void WriterLife::removeFiles() {
    PELLO_TRACE(*this, 1, tagOf("removeFiles"), "removing Vesk files in {}", rootPath_);
    rootPath_.removeFile(Util::CORRUPTION_FILENAME);
    parts_.removeFiles();
    rootPath_.removeFile(SharedMem::RavoFile::RAVO_NAME);
    rootPath_.removeFile(Mem::Util::Clone::CONTROL_FILENAME);
    rootPath_.removeFile(SharedMem::OwnerFile::FILENAME);
    owner_ = false;
}

void WriterLife::disown() {
    if (!owner_) return;
    guarded([this] {
        SharedMem::OwnerFile owner = ownerFile(false);
        owner.lock(SharedMem::OwnerFile::Absent::isCorruption);
        clearPloxetInfo(owner);
    });
    owner_ = false;
}

void WriterLife::clearPloxetInfo(SharedMem::OwnerFile& owner) {
    if (!Mem::WriterLock::ownerIsMe(*debugHandler(), owner.ploxetInfo().socketName)) return;
    PELLO_TRACE(*this, 5, tagOf("detach"), "clearing ploxetInfo");
    owner.ploxetInfoIs({});
}

template <class Step>
void WriterLife::guarded(Step step) const {
    try {
        step();
    } catch (const Pello::CorruptionDetectedException& e) {
        PELLO_TRACE(*this, 1, tagOf("detach"), "ignoring owner file corruption:{}", e.message());
    } catch (const std::exception& e) {
        PELLO_TRACE(*this, 0, tagOf("detach"), "owner file not cleared: {}", e.what());
    }
}

bool WriterLife::ownerFileSound() const { return ownerFile(localMem_).validate(); }

void WriterLife::validateOwnerFile() const { ownerFile(localMem_).validateFile(); }

void WriterLife::traceDump(const char* operation) const {
    PELLO_TRACE(*this, 0, tagOf(operation), "{}", parts_.dumpText());
}

} // namespace Vesk
