#pragma once

#include "Pello/Debug.h"
#include "Pello/String.h"

#include <fmt/format.h>

#include <memory>

namespace Mem {

/// The folder below which all tables of this process lie.
namespace RootPath {

/// Default `/dev/shm/rsvp-vesk`. To be set before the first table is made.
void baseIs(const Pello::String& folder);
const Pello::String& base();

/// Makes `folder` and what is missing above it, each 0755 whatever the umask. On failure the
/// folders made so far are removed again and the text says which could not be made and why;
/// empty on success.
Pello::String makeFolders(const Pello::String& folder);

/// Why this process must not change what lies in a folder: it, or one between it and the base, is
/// a symbolic link or another user's; or the base is neither this user's nor root's. Empty when it
/// may, also for a folder that does not exist.
Pello::String folderProblem(const Pello::String& folder);

/// `makeFolders`, then `folderProblem`.
Pello::String makeOwnFolders(const Pello::String& folder);

} // namespace RootPath

/// The folder of one table's files: `<base>/<name>`.
class OruRootPath {
  public:
    /// Throws `InvalidInitializeException` for an empty name and for one with empty, "." or ".."
    /// components, and, with `create`, when the folder cannot be made. Leading slashes of the
    /// name are dropped. Only writers create: a reader must not leave folders behind.
    OruRootPath(const Pello::Platform::DebugHandler& handler, const Pello::String& name,
                bool create);

    /// The name relative to the base.
    const Pello::String& dirName() const { return name_; }
    /// The full path of the folder; this is how a root path appears in messages.
    const Pello::String& path() const { return path_; }
    Pello::String filePath(const Pello::String& fileName) const { return path_ + "/" + fileName; }

    /// Makes the folder, and those above it, where they are missing. Throws
    /// `InvalidInitializeException` when that fails, and like `checkFolders`.
    void makeFolder() const;
    /// Throws `InvalidInitializeException` when there is a `RootPath::folderProblem`.
    void checkFolders() const;

    bool exists() const;
    bool hasFile(const Pello::String& fileName) const;

    /// Removes a file of the folder. Its absence is no error.
    void removeFile(const Pello::String& fileName) const;

    /// Removes the folder, and those above it up to the base, as far as they are empty.
    void removeEmptyFolders() const;

  private:
    static void refuse(const Pello::String& problem);

    Pello::String name_;
    Pello::String path_;
    Pello::String base_;
};

} // namespace Mem

template <>
struct fmt::formatter<Mem::OruRootPath> : fmt::formatter<std::string> {
    auto format(const Mem::OruRootPath& root, fmt::format_context& context) const {
        return fmt::formatter<std::string>::format(root.path(), context);
    }
};
