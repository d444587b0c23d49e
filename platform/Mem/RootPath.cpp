#include "Mem/RootPath.h"

#include "Mem/StopPoint.h"
#include "Pello/Exception.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Mem {

namespace {

constexpr mode_t kFolderMode = 0755;

Pello::String& baseFolder() {
    static auto* const folder = new Pello::String("/dev/shm/rsvp-vesk");
    return *folder;
}

std::vector<Pello::String> componentsOf(const Pello::String& name) {
    std::vector<Pello::String> components(1);
    for (const char c : name) {
        if (c == '/') {
            components.emplace_back();
        } else {
            components.back() += c;
        }
    }
    return components;
}

Pello::String parentOf(const Pello::String& path) { return path.substr(0, path.rfind('/')); }

} // namespace

namespace RootPath {

void baseIs(const Pello::String& folder) {
    Pello::String& base = baseFolder();
    base = folder;
    while (base.size() > 1 && base.back() == '/') {
        base.pop_back();
    }
}

const Pello::String& base() { return baseFolder(); }

Pello::String makeFolders(const Pello::String& folder) {
    std::vector<Pello::String> made;
    Pello::String problem;
    for (std::size_t end = folder.find('/', 1); problem.empty(); end = folder.find('/', end + 1)) {
        const Pello::String path = folder.substr(0, end);
        if (mkdir(path.c_str(), kFolderMode) == 0) {
            made.push_back(path);
            // The umask may have taken bits away; readers of other users need them.
            if (chmod(path.c_str(), kFolderMode) != 0) problem = std::strerror(errno);
        } else if (errno == EEXIST) {
            struct stat status {};
            if (stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode)) {
                problem = std::strerror(ENOTDIR);
            }
        } else {
            problem = std::strerror(errno);
        }
        if (!problem.empty()) problem = fmt::format("cannot create folder {}: {}", path, problem);
        if (end == Pello::String::npos) break;
    }
    if (!problem.empty()) {
        for (auto path = made.rbegin(); path != made.rend(); ++path) {
            rmdir(path->c_str());
        }
    }
    return problem;
}

Pello::String folderProblem(const Pello::String& folder) {
    struct stat status {};
    for (Pello::String path = folder; path.size() > base().size(); path = parentOf(path)) {
        if (lstat(path.c_str(), &status) != 0) continue;
        if (!S_ISDIR(status.st_mode)) {
            return fmt::format("cannot use folder {}: {}", path,
                               S_ISLNK(status.st_mode) ? "a symbolic link" : "not a folder");
        }
        if (status.st_uid != geteuid()) {
            return fmt::format("cannot use folder {}: belongs to user {}", path, status.st_uid);
        }
    }
    // The base may be a link, and root's, as the administrator likes it.
    if (stat(base().c_str(), &status) == 0 && status.st_uid != geteuid() && status.st_uid != 0) {
        return fmt::format("cannot use folder {}: belongs to user {}", base(), status.st_uid);
    }
    return {};
}

Pello::String makeOwnFolders(const Pello::String& folder) {
    const Pello::String problem = makeFolders(folder);
    return problem.empty() ? folderProblem(folder) : problem;
}

} // namespace RootPath

OruRootPath::OruRootPath(const Pello::Platform::DebugHandler& handler, const Pello::String& name,
                         bool create)
    : name_(name.substr(std::min(name.find_first_not_of('/'), name.size())))
    , base_(RootPath::base()) {
    const Pello::SourceTag tag("OruRootPath", "Mem/RootPath", "OruRootPath");
    for (const Pello::String& component : componentsOf(name_)) {
        if (component.empty() || component == "." || component == "..") {
            Pello::raise<Pello::InvalidInitializeException>(
                tag, "bad table name \"{}\": empty, \".\" and \"..\" components are not allowed",
                name);
        }
    }
    path_ = base_ + "/" + name_;
    if (!create) return;
    makeFolder();
    PELLO_TRACE(handler, 5, tag, "{}", path_);
}

void OruRootPath::makeFolder() const { refuse(RootPath::makeOwnFolders(path_)); }

void OruRootPath::checkFolders() const { refuse(RootPath::folderProblem(path_)); }

void OruRootPath::refuse(const Pello::String& problem) {
    if (problem.empty()) return;
    Pello::raise<Pello::InvalidInitializeException>({"OruRootPath", "Mem/RootPath", "OruRootPath"},
                                                    "{}", problem);
}

bool OruRootPath::hasFile(const Pello::String& fileName) const {
    return access(filePath(fileName).c_str(), F_OK) == 0;
}

bool OruRootPath::exists() const { return access(path_.c_str(), F_OK) == 0; }

void OruRootPath::removeFile(const Pello::String& fileName) const {
    stopAt(StopPoint::removeFile);
    unlink(filePath(fileName).c_str());
}

void OruRootPath::removeEmptyFolders() const {
    for (Pello::String folder = path_; folder.size() > base_.size(); folder = parentOf(folder)) {
        if (rmdir(folder.c_str()) != 0) return;
    }
}

} // namespace Mem
