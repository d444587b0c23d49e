#pragma once

#include "Mox/GenericIf.h"

#include <vector>

namespace Fuzz {

/// Every registered type whose values are read from text, in the order of modules and numbers.
inline const std::vector<const Mox::TypeDescriptor*>& readableTypes() {
    static const std::vector<const Mox::TypeDescriptor*> types = [] {
        std::vector<const Mox::TypeDescriptor*> found;
        for (const Mox::ModuleDescriptor* const module : Mox::modules()) {
            for (const Mox::TypeDescriptor& type : module->types) {
                const bool isRead = type.kind != Mox::TypeKind::entity &&
                                    type.name != "MoxVesk::MountInfo" && type.name != "Mox::String";
                if (isRead) found.push_back(&type);
            }
        }
        return found;
    }();
    return types;
}

} // namespace Fuzz
