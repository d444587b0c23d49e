#include "Vesk/WriterLife.h"

#include "Pello/Util.h"
#include "Vesk/Util.h"

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
                       const Mem::OruRootPath& rootPath, bool localMem)
    : Debuggable(std::move(handler))
    , parts_(parts)
    , rootPath_(rootPath)
    , localMem_(localMem) {}

void WriterLife::attach() {
    PELLO_TRACE(*this, 5, tagOf("attach"), "localMem_:{} rootPath:{}", localMem_, rootPath_);
    if (localMem_) {
        attachFiles();
        return;
    }
    rootPath_.makeFolder();
    const bool hadTable = parts_.filesExist();
    const bool hadIdentity = rootPath_.hasFile(SharedMem::RavoFile::RAVO_NAME);
    try {
        attachFiles();
    } catch (...) {
        // Files that were there stay mapped: a core dump shall show what was wrong with them.
        if (!hadTable) {
            parts_.detachFiles();
            parts_.removeFiles();
        }
        if (!hadIdentity) rootPath_.removeFile(SharedMem::RavoFile::RAVO_NAME);
        rootPath_.removeEmptyFolders();
        throw;
    }
}

void WriterLife::attachFiles() {
    SharedMem::RavoFile ravoFile(*debugHandler(), rootPath_, localMem_);
    if (localMem_) {
        ravoId_ = SharedMem::RavoId(static_cast<std::uint16_t>(getpid()), 0);
    } else {
        const SharedMem::RavoId stored = ravoFile.read();
        ravoId_ = stored != SharedMem::RavoId() ? stored : newIdentity();
    }
    if (!attachAndValidate(false)) attachAndValidate(true);
    rootPath_.removeFile(Util::CORRUPTION_FILENAME);
    ravoFile.write(ravoId_);
    if (!localMem_) {
        PELLO_TRACE(*this, 1, tagOf("attach"),
                    "success {} capacity:{} ravoId:{} mtime:{} ploxetInfo:{}", rootPath_,
                    parts_.tableCapacity(), ravoId_, ravoFile.mtime(), "none");
    }
}

bool WriterLife::attachAndValidate(bool reformat) {
    const char* const operation = "attachAndValidate";
    if (reformat) {
        PELLO_TRACE(*this, 1, tagOf(operation), "all entries from {} will be lost", rootPath_);
        ravoId_ = ravoId_.nextGeneration();
        attachParts();
        if (!parts_.validateTable(ravoId_)) {
            Pello::raise<Pello::InvalidInitializeException>(tagOf(operation), "failed validation");
        }
        PELLO_TRACE(*this, 1, tagOf(operation), "re-formatted successfully");
        return true;
    }
    if (!attachParts()) {
        PELLO_TRACE(*this, 0, tagOf(operation), "failed to attach to existing files");
        traceDump(operation);
        return false;
    }
    if (parts_.validateTable(ravoId_)) return true;
    if (Util::runningOnPhysicalDut() && Util::strictValidation()) {
        rootPath_.removeFile(SharedMem::RavoFile::RAVO_NAME);
        parts_.dumpToCore();
        Pello::Util::includeShmemInCore();
        Pello::raise<Pello::InvalidInitializeException>(
            tagOf(operation), "failed initial validation of {} after re-attaching", rootPath_);
    }
    PELLO_TRACE(*this, 0, tagOf(operation), "failed to validate existing files");
    traceDump(operation);
    return false;
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

void WriterLife::removeFiles() {
    PELLO_TRACE(*this, 1, tagOf("removeFiles"), "removing Vesk files in {}", rootPath_);
    rootPath_.removeFile(Util::CORRUPTION_FILENAME);
    parts_.removeFiles();
    rootPath_.removeFile(SharedMem::RavoFile::RAVO_NAME);
}

void WriterLife::traceDump(const char* operation) const {
    PELLO_TRACE(*this, 0, tagOf(operation), "{}", parts_.dumpText());
}

} // namespace Vesk
