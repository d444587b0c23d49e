#include "Mox/Module.h"

#include "Pello/Debug.h"

#include <map>
#include <mutex>

namespace Mox {

namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::string_view, const ModuleDescriptor*> modules;
};

/// Never destroyed: static destructors of other files may still convert values.
Registry& registry() {
    static auto& leaked = *new Registry;
    return leaked;
}

} // namespace

void moxModuleIs(const ModuleDescriptor* module) {
    Registry& all = registry();
    const std::lock_guard lock(all.mutex);
    const auto [entry, isNew] = all.modules.emplace(module->name, module);
    if (!isNew && entry->second != module) {
        Pello::fatal(nullptr, {"Registry", "Mox/Module", "moxModuleIs"},
                     "another module {} is registered already", module->name);
    }
}

std::vector<const ModuleDescriptor*> modules() {
    Registry& all = registry();
    const std::lock_guard lock(all.mutex);
    std::vector<const ModuleDescriptor*> found;
    for (const auto& [name, module] : all.modules) {
        found.push_back(module);
    }
    return found;
}

const ModuleDescriptor* moduleNamed(std::string_view name) {
    Registry& all = registry();
    const std::lock_guard lock(all.mutex);
    const auto entry = all.modules.find(name);
    return entry == all.modules.end() ? nullptr : entry->second;
}

const TypeDescriptor* typeDescriptor(const MoxTypeBase& type) {
    const ModuleDescriptor* const module = moduleNamed(type.module);
    if (module == nullptr) return nullptr;
    for (const TypeDescriptor& descriptor : module->types) {
        if (descriptor.handle == type) return &descriptor;
    }
    return nullptr;
}

const TypeDescriptor* typeNamed(std::string_view name) {
    const TypeDescriptor* found = nullptr;
    for (const ModuleDescriptor* const module : modules()) {
        for (const TypeDescriptor& type : module->types) {
            if (type.name == name) return &type;
            const bool isShort = type.name.ends_with(name) &&
                                 type.name.substr(0, type.name.size() - name.size()).ends_with(':');
            if (!isShort || name.empty()) continue;
            if (found != nullptr) return nullptr;
            found = &type;
        }
    }
    return found;
}

const TypeDescriptor* typeIn(const ModuleDescriptor& module, std::string_view name) {
    for (const TypeDescriptor& type : module.types) {
        if (type.name == name) return &type;
    }
    for (const ForeignType& type : module.foreignTypes) {
        if (type.name == name) return typeDescriptor(type.handle);
    }
    return typeNamed(name);
}

} // namespace Mox
