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

const EnumDescriptor* enumDescriptor(const MoxTypeBase& type) {
    Registry& all = registry();
    const std::lock_guard lock(all.mutex);
    const auto entry = all.modules.find(type.module);
    if (entry == all.modules.end()) return nullptr;
    for (const EnumDescriptor& descriptor : entry->second->enumerations) {
        if (descriptor.typeNumber == type.typeNumber) return &descriptor;
    }
    return nullptr;
}

} // namespace Mox
