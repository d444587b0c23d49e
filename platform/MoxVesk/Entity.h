#pragma once

// The tree of named objects. A directory owns its children and is their parent; what is mounted in
// it takes its full name from its place.

#include "Mox/Ptr.h"
#include "Pello/String.h"

#include <map>

namespace Vesk {
class ControlBase;
}

namespace Mox {

class Entity : public PtrInterface {};

} // namespace Mox

namespace MoxVesk {

class Directory;

class Entity : public Mox::Entity {
  public:
    explicit Entity(Pello::String name)
        : name_(std::move(name)) {}

    virtual Pello::String nameString() const { return name_; }
    /// The entity has got a parent, or lost the one that it had (null).
    virtual void handleParent(const Mox::Ptr<Mox::Entity>& /*parent*/) {}
    /// The front of the table attribute of that name; null when there is none.
    virtual Vesk::ControlBase* tableControl(const Pello::String& /*table*/) { return nullptr; }

    /// The directory that the entity lies in; null outside of any.
    Directory* parent() const { return parent_; }
    /// The name under which it lies there.
    const Pello::String& entryName() const { return entryName_; }

  private:
    friend class Directory;

    Pello::String name_;
    Pello::String entryName_;
    Directory* parent_ = nullptr;
};

class Directory final : public Entity {
  public:
    using Entity::Entity;
    ~Directory() override;

    /// Takes an entity in. Throws `Pello::InvalidInitializeException` for an empty name or one
    /// with a '/', for a name that is taken, and for an entity that has a parent already. When
    /// the entity itself throws at the news, it is out again.
    void entityIs(const Pello::String& name, const Mox::Ptr<Entity>& entity);
    /// Lets an entity go, which loses its parent; nothing happens when there is none.
    void entityDel(const Pello::String& name);
    Mox::Ptr<Entity> entity(const Pello::String& name) const;
    /// The directory at a path of names joined with '/', made as far as it is missing; this one
    /// for an empty path. Throws when something else has one of the names.
    Mox::Ptr<Directory> directory(const Pello::String& path);
    /// The same; null when it does not exist.
    Mox::Ptr<Directory> existingDirectory(const Pello::String& path);

  private:
    Mox::Ptr<Directory> descend(const Pello::String& path, bool make);

    std::map<Pello::String, Mox::Ptr<Entity>> entities_;
};

} // namespace MoxVesk

namespace MoxSharedMem::Util {

/// The names from the root of the entity's tree down to the entity, joined with '/'. The root
/// itself has no name there.
Pello::String fullName(const MoxVesk::Entity& entity);

} // namespace MoxSharedMem::Util
