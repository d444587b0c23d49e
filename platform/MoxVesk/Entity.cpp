#include "MoxVesk/Entity.h"

#include "Pello/Exception.h"

#include <utility>

namespace MoxVesk {

namespace {

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"Directory", "MoxVesk/Entity", operation, line};
}

} // namespace

Directory::~Directory() {
    while (!entities_.empty()) {
        entityDel(Pello::String(entities_.begin()->first));
    }
}

void Directory::entityIs(const Pello::String& name, const Mox::Ptr<Entity>& entity) {
    const auto refuse = [&name](const Pello::SourceTag& tag, const char* why) {
        Pello::raise<Pello::InvalidInitializeException>(tag, "cannot add \"{}\": {}", name,
                                                        fmt::string_view(why));
    };
    if (name.empty() || name.find('/') != Pello::String::npos) {
        refuse(tagOf("entityIs"), "not a name");
    }
    if (entities_.contains(name)) refuse(tagOf("entityIs"), "the name is taken");
    if (entity->parent_ != nullptr) refuse(tagOf("entityIs"), "it has a parent already");
    entities_[name] = entity;
    entity->parent_ = this;
    entity->entryName_ = name;
    try {
        entity->handleParent(this);
    } catch (...) {
        entity->parent_ = nullptr;
        entities_.erase(name);
        throw;
    }
}

void Directory::entityDel(const Pello::String& name) {
    const auto entry = entities_.find(name);
    if (entry == entities_.end()) return;
    const Mox::Ptr<Entity> removed = entry->second; // goes last
    entities_.erase(entry);
    removed->parent_ = nullptr;
    removed->handleParent(nullptr);
}

Mox::Ptr<Entity> Directory::entity(const Pello::String& name) const {
    const auto entry = entities_.find(name);
    return entry != entities_.end() ? entry->second : nullptr;
}

Mox::Ptr<Directory> Directory::directory(const Pello::String& path) { return descend(path, true); }

Mox::Ptr<Directory> Directory::existingDirectory(const Pello::String& path) {
    return descend(path, false);
}

Mox::Ptr<Directory> Directory::descend(const Pello::String& path, bool make) {
    if (path.empty()) return this;
    const std::size_t slash = path.find('/');
    const Pello::String name = path.substr(0, slash);
    const Mox::Ptr<Entity> found = entity(name);
    Mox::Ptr<Directory> next = dynamic_cast<Directory*>(found.get());
    if (!next && !make) return nullptr;
    if (!next) {
        next = new Directory(name);
        entityIs(name, Mox::Ptr<Entity>(next)); // refuses a name that something else has
    }
    return slash == Pello::String::npos ? next : next->descend(path.substr(slash + 1), make);
}

} // namespace MoxVesk

namespace MoxSharedMem::Util {

Pello::String fullName(const MoxVesk::Entity& entity) {
    const MoxVesk::Directory* const parent = entity.parent();
    if (parent == nullptr) return {};
    const Pello::String above = fullName(*parent);
    return above.empty() ? entity.entryName() : above + "/" + entity.entryName();
}

} // namespace MoxSharedMem::Util
