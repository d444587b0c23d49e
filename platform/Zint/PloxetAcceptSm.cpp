#include "Zint/PloxetAcceptSm.h"

#include "Mem/RootPath.h"
#include "Pello/Exception.h"
#include "Pello/Fork.h"
#include "Pello/Process.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Zint {

namespace {

constexpr int kBacklog = 64;

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"PloxetAcceptSm", "Zint/PloxetAcceptSm", operation, line};
}

Pello::String folder() { return Mem::RootPath::base() + "/.ploxet"; }

bool addressOf(const Pello::String& path, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

struct Registry {
    std::mutex mutex;
    std::unique_ptr<PloxetAcceptSm> socket;
};

Registry& registry() {
    static auto* const instance = new Registry;
    return *instance;
}

} // namespace

PloxetAcceptSm& PloxetAcceptSm::ploxetAcceptSm() {
    Registry& r = registry();
    static const bool hooked = [] {
        std::atexit([] { registry().socket.reset(); });
        // A child must neither keep the parent's socket open nor remove its name.
        Pello::atFork(registry().mutex, [] {
            if (registry().socket) registry().socket->forget();
            registry().socket.reset();
        });
        return true;
    }();
    static_cast<void>(hooked);
    const std::lock_guard lock(r.mutex);
    if (!r.socket || r.socket->base_ != Mem::RootPath::base()) {
        r.socket.reset(new PloxetAcceptSm);
    }
    return *r.socket;
}

PloxetAcceptSm::PloxetAcceptSm()
    : base_(Mem::RootPath::base())
    , name_(Pello::ProcessId::self().text())
    , path_(folder() + "/" + name_) {
    if (const Pello::String problem = Mem::RootPath::makeOwnFolders(folder()); !problem.empty()) {
        Pello::raise<Pello::InvalidInitializeException>(tagOf("PloxetAcceptSm"), "{}", problem);
    }
    sockaddr_un address{};
    const auto fail = [this](const char* what) {
        Pello::raise<Pello::InvalidInitializeException>(
            tagOf("PloxetAcceptSm"), "cannot {} accept socket {}: {}", fmt::string_view(what),
            path_, std::strerror(errno));
    };
    if (!addressOf(path_, address)) {
        errno = ENAMETOOLONG;
        fail("name");
    }
    fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd_ < 0) fail("make");
    unlink(path_.c_str()); // left by a process of another namespace that had this very identity
    if (bind(fd_, generic(address), sizeof address) != 0 || listen(fd_, kBacklog) != 0) {
        const int error = errno;
        close(fd_);
        errno = error;
        fail("bind");
    }
    chmod(path_.c_str(), 0666); // a connection is all that a reader may do
}

PloxetAcceptSm::~PloxetAcceptSm() {
    if (fd_ < 0) return;
    close(fd_);
    unlink(path_.c_str());
    rmdir((base_ + "/.ploxet").c_str()); // stays unless this was the last socket
}

void PloxetAcceptSm::forget() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
}

void PloxetAcceptSm::removeDead() {
    if (!Mem::RootPath::folderProblem(folder()).empty()) return;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder(), ignored)) {
        if (entry.symlink_status(ignored).type() != std::filesystem::file_type::socket) continue;
        if (!answers(entry.path().filename())) std::filesystem::remove(entry.path(), ignored);
    }
    rmdir(folder().c_str());
}

bool PloxetAcceptSm::answers(const Pello::String& socketName) {
    sockaddr_un address{};
    if (socketName.empty() || !addressOf(folder() + "/" + socketName, address)) return false;
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return false;
    const bool answered = connect(fd, generic(address), sizeof address) == 0 || errno == EAGAIN ||
                          errno == EINPROGRESS;
    close(fd);
    return answered;
}

} // namespace Zint
