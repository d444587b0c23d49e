#include "MoxVesk/MountInfo.h"

#include "Pello/Exception.h"
#include "Vesk/ControlBase.h"

namespace MoxVesk {

namespace {

struct Place {
    explicit Place(const Pello::String& path)
        : slash(path.rfind('/'))
        , folder(slash == Pello::String::npos ? Pello::String() : path.substr(0, slash))
        , name(slash == Pello::String::npos ? path : path.substr(slash + 1)) {}

    std::size_t slash;
    Pello::String folder;
    Pello::String name;
};

} // namespace

void Mounter::mount(const Mox::Ptr<Entity>& collectionArgument, const Pello::String& path,
                    const MountInfo& info, Vesk::VeskType mode, const Adjust& adjust) {
    // A reference of its own: an observer may drop the caller's.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Mox::Ptr<Entity> collection = collectionArgument;
    const Place place(path);
    root_->directory(place.folder)->entityIs(place.name, collection);
    try {
        for (const MountInfo::CollectionInfo& table : info.collections()) {
            Vesk::ControlBase* const front = collection->tableControl(table.name);
            if (front == nullptr) {
                Pello::raise<Pello::InvalidInitializeException>(
                    {"Mounter", "MoxVesk/MountInfo", "mount"}, "{} has no table {}", path,
                    table.name);
            }
            Vesk::MapDescriptor descriptor(table.size, mode);
            if (adjust) adjust(table.name, descriptor);
            front->init(descriptor);
        }
    } catch (...) {
        unmount(path);
        throw;
    }
}

void Mounter::unmount(const Pello::String& path) {
    const Place place(path);
    const Mox::Ptr<Directory> folder = root_->existingDirectory(place.folder);
    if (folder) folder->entityDel(place.name);
}

} // namespace MoxVesk
