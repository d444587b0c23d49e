#include "Mem/WriterLock.h"

#include "Mem/OwnFile.h"
#include "Pello/Fork.h"
#include "Pello/Process.h"
#include "Zint/PloxetAcceptSm.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <unistd.h>

namespace Mem {

namespace {

struct Registry {
    std::mutex mutex;
    std::map<Pello::String, int> locks; // descriptors by the path of the lock file
};

Registry& registry() {
    static auto* const instance = new Registry;
    static const bool hooked = [] {
        Pello::atFork(instance->mutex, [] {
            for (const auto& [path, fd] : registry().locks) {
                close(fd);
            }
            registry().locks.clear();
        });
        return true;
    }();
    static_cast<void>(hooked);
    return *instance;
}

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"WriterLock", "Mem/WriterLock", operation, line};
}

/// One file name for a table name, whatever characters it has.
Pello::String escaped(const Pello::String& name) {
    Pello::String result;
    for (const char c : name) {
        if (c == '/' || c == '%') {
            result += fmt::format("%{:02X}", static_cast<unsigned>(static_cast<unsigned char>(c)));
        } else {
            result += c;
        }
    }
    return result;
}

Pello::String textOf(int fd) {
    std::array<char, 64> text{};
    const ssize_t n = pread(fd, text.data(), text.size(), 0);
    return {text.data(), n > 0 ? static_cast<std::size_t>(n) : 0};
}

Pello::String describe(const Pello::String& holder) {
    const auto process = Pello::ProcessId::parse(holder);
    if (!process) return "another process";
    return fmt::format("{} (process {})", process->command(), process->pid);
}

/// Opens and locks the file of that path. On failure -1, with the reason.
int lockFile(const Pello::String& path, Pello::String& reason) {
    while (true) {
        Pello::String error;
        OwnFile file = OwnFile::open(path, OwnFile::Absent::isMade, error);
        if (!file.isOpen()) {
            reason = fmt::format("cannot lock {}: {}", path, error);
            return -1;
        }
        if (!lockWhole(file.fd(), false)) {
            reason = errno == EAGAIN || errno == EACCES
                         ? fmt::format("its writer is {}", describe(textOf(file.fd())))
                         : fmt::format("cannot lock {}: {}", path, std::strerror(errno));
            return -1;
        }
        // The last holder may have removed the file meanwhile.
        if (leadsTo(path, file.fd())) return file.release();
    }
}

/// The process other than this one that the owner file names and that lives; empty for none. Asked
/// with the lock in hand: somebody may have removed the lock file of a living writer.
Pello::String livingOwner(const Pello::Platform::DebugHandler& handler,
                          const SharedMem::OwnerFile& ownerFile) {
    Pello::String text;
    if (!ownerFile.validate(text)) return {}; // says nothing about anybody
    const Pello::String socketName = ownerFile.ploxetInfo().socketName;
    if (socketName.empty() || socketName == Pello::ProcessId::self().text()) return {};
    Pello::String command;
    return WriterLock::ownerIsAlive(handler, socketName, command) ? socketName : Pello::String();
}

} // namespace

WriterLock::Hold::Hold(Pello::String path)
    : path_(std::move(path))
    , process_(getpid()) {}

bool WriterLock::Hold::stands() const { return process_ == getpid(); }

WriterLock::Hold::~Hold() {
    if (!stands()) return;
    Registry& r = registry();
    const std::lock_guard lock(r.mutex);
    const auto held = r.locks.find(path_);
    if (held == r.locks.end()) return;
    unlink(path_.c_str()); // under the lock: whoever opened it meanwhile sees that and tries again
    close(held->second);
    r.locks.erase(held);
    rmdir(path_.substr(0, path_.rfind('/')).c_str());
}

std::unique_ptr<WriterLock::Hold>
WriterLock::acquireWriterLock(const Pello::Platform::DebugHandler& handler,
                              const OruRootPath& rootPath, const SharedMem::OwnerFile& ownerFile,
                              bool cleanup) {
    const Pello::SourceTag tag = tagOf("acquireWriterLock");
    const auto refuse = [&](const Pello::String& reason) {
        PELLO_TRACE(handler, 1, tag, "{} refused: {} owner file: {}", rootPath, reason,
                    ownerFile.headerToString());
        Pello::raise<Pello::InvalidInitializeException>(
            tag, "cannot {} {}: {}", fmt::string_view(cleanup ? "clean up" : "attach to"), rootPath,
            reason);
    };
    const Pello::String folder = RootPath::base() + "/.locks";
    const Pello::String path = folder + "/" + escaped(rootPath.dirName());
    Registry& r = registry();
    const std::lock_guard lock(r.mutex);
    if (r.locks.contains(path)) refuse("a writer of this process is attached to it");
    // Another table's last hold may remove the folder between the two steps.
    Pello::String reason;
    int fd = -1;
    for (int attempt = 0; attempt < 3 && fd < 0; ++attempt) {
        reason = RootPath::makeOwnFolders(folder);
        if (reason.empty()) fd = lockFile(path, reason);
        if (fd < 0 && access(folder.c_str(), F_OK) == 0) break;
    }
    if (fd < 0) refuse(reason);
    if (const Pello::String owner = livingOwner(handler, ownerFile); !owner.empty()) {
        close(fd);
        refuse(fmt::format("its writer is {}", describe(owner)));
    }
    const Pello::String self = Pello::ProcessId::self().text();
    const int failure = ftruncate(fd, 0) == 0 ? writeWhole(fd, self.data(), self.size()) : errno;
    if (failure != 0) {
        PELLO_TRACE(handler, 1, tag, "cannot write {}: {}", path, std::strerror(failure));
    }
    r.locks[path] = fd;
    return std::make_unique<Hold>(path);
}

bool WriterLock::ownerIsMe(const Pello::Platform::DebugHandler& handler,
                           const Pello::String& socketName) {
    const Pello::String own = Pello::ProcessId::self().text();
    PELLO_TRACE(handler, 5, tagOf("ownerIsMe"), "{} own:{}", socketName, own);
    return socketName == own;
}

bool WriterLock::ownerIsAlive(const Pello::Platform::DebugHandler& handler,
                              const Pello::String& socketName, Pello::String& owner) {
    const auto process = Pello::ProcessId::parse(socketName);
    bool alive = process && process->alive();
    if (alive) {
        owner = process->command();
    } else if (Zint::PloxetAcceptSm::answers(socketName)) {
        alive = true; // a process of another namespace
        owner = "?";
    }
    PELLO_TRACE(handler, 5, tagOf("ownerIsAlive"), "{} alive:{}", socketName, alive);
    return alive;
}

} // namespace Mem
