#pragma once

#include "MoxVesk/Entity.h"
#include "Pello/String.h"
#include "Vesk/MapDescriptor.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace MoxVesk {

/// A collection's description of the tables that its writer mounts, in their order.
class MountInfo {
  public:
    struct CollectionInfo {
        Pello::String name;
        std::uint32_t size; ///< entries
        bool flag;

        friend bool operator==(const CollectionInfo&, const CollectionInfo&) = default;
    };

    explicit MountInfo(std::uint32_t type = 0)
        : type_(type) {}

    void collectionInfoIs(const Pello::String& name, std::uint32_t size, bool flag) {
        collections_.push_back({name, size, flag});
    }

    std::uint32_t type() const { return type_; }
    const std::vector<CollectionInfo>& collections() const { return collections_; }

    friend bool operator==(const MountInfo&, const MountInfo&) = default;

  private:
    std::uint32_t type_;
    std::vector<CollectionInfo> collections_;
};

/// Brings collections into use: gives them their place in a tree and initialises their tables.
class Mounter {
  public:
    /// A last word on a table's descriptor, by the table's name.
    using Adjust = std::function<void(const Pello::String& table, Vesk::MapDescriptor&)>;

    Mounter()
        : root_(new Directory("")) {}

    /// Puts the collection at a path of names joined with '/', making the directories above, and
    /// initialises its tables in the order of `info` for that use. Throws what the tree and the
    /// tables throw; the collection is unmounted again then.
    void mount(const Mox::Ptr<Entity>& collection, const Pello::String& path, const MountInfo& info,
               Vesk::VeskType mode, const Adjust& adjust = {});
    /// Takes the collection at that path out of the tree: it becomes an orphan.
    void unmount(const Pello::String& path);

  private:
    Mox::Ptr<Directory> root_;
};

} // namespace MoxVesk
