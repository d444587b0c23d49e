// The types of this folder as others refer to them: modules of one type each.

#include "MoxVesk/CollectionControl.h"
#include "MoxVesk/EntityType.h"
#include "MoxVesk/MountInfo.h"

#include <array>

namespace MoxVesk {

namespace {

/// Entities that no factory makes.
constexpr Mox::GenericFunctions kEntity = [] {
    Mox::GenericFunctions functions = {};
    functions.strRep = [](const Mox::TypeDescriptor&, const void* entity) {
        return static_cast<const Entity*>(entity)->nameString();
    };
    functions.wholeOp = unsupportedOp;
    return functions;
}();
constexpr Mox::GenericFunctions kControl = [] {
    Mox::GenericFunctions functions = {};
    functions.strRep = [](const Mox::TypeDescriptor& type, const void* /*control*/) {
        return Pello::String(type.name);
    };
    functions.wholeOp = unsupportedOp;
    return functions;
}();

/// Written as "type 0: rxErrorCount 10, txErrorCount 10"; never read back.
struct MountInfoMethods : Mox::GenericIfImpl::GenericIfValueMethods<MountInfo> {
    static Pello::String strRep(const Mox::TypeDescriptor& /*type*/, const void* value) {
        const auto& info = *static_cast<const MountInfo*>(value);
        Pello::String text = fmt::format("type {}", info.type());
        const char* separator = ": ";
        for (const MountInfo::CollectionInfo& collection : info.collections()) {
            text += fmt::format("{}{} {}", separator, collection.name, collection.size);
            separator = ", ";
        }
        return text;
    }
    static void read(const Mox::TypeDescriptor& type, const Pello::String& text, void* /*into*/) {
        Pello::raise<Mox::RangeException>({"MountInfo", "MoxVesk/MountInfo", "strepToValue"},
                                          "{} is not read from text, found \"{}\"", type.name,
                                          text);
    }
};
constexpr Mox::GenericFunctions kMountInfo = [] {
    Mox::GenericFunctions functions = {};
    functions.construct = MountInfoMethods::construct;
    functions.destruct = MountInfoMethods::destruct;
    functions.hash = MountInfoMethods::hash;
    functions.strRep = MountInfoMethods::strRep;
    functions.strepToValue = MountInfoMethods::read;
    functions.constructFromCtorArgs = MountInfoMethods::fromCtorArgs<std::uint32_t>;
    functions.wholeOp = MountInfoMethods::wholeOp;
    return functions;
}();
constexpr std::array kMountInfoParameters = {Mox::Parameter{"type", "U32"}};

template <class T>
constexpr Mox::TypeDescriptor described(const Mox::MoxTypeBase& handle, std::string_view name,
                                        Mox::TypeKind kind,
                                        const Mox::GenericFunctions& functions) {
    return {.handle = handle,
            .name = name,
            .bytes = sizeof(T),
            .kind = kind,
            .alignment = alignof(T),
            .plainlyCopyable = false,
            .functions = &functions};
}

constexpr std::array kEntityTypes = {
    described<Entity>({"Entity", 0}, "MoxVesk::Entity", Mox::TypeKind::entity, kEntity)};
constexpr std::array kControlTypes = {described<CollectionControl>(
    {"CollectionControl", 0}, "MoxVesk::CollectionControl", Mox::TypeKind::entity, kControl)};
constexpr std::array kMountInfoTypes = [] {
    std::array types = {described<MountInfo>({"MountInfo", 1}, "MoxVesk::MountInfo",
                                             Mox::TypeKind::value, kMountInfo)};
    types[0].constructorParameters = kMountInfoParameters;
    return types;
}();
constexpr Mox::ModuleDescriptor kModules[] = {
    {"Entity", kEntityTypes}, {"CollectionControl", kControlTypes}, {"MountInfo", kMountInfoTypes}};
const Mox::ModuleRegistration atLoad[] = {Mox::ModuleRegistration(kModules[0]),
                                          Mox::ModuleRegistration(kModules[1]),
                                          Mox::ModuleRegistration(kModules[2])};

} // namespace

} // namespace MoxVesk
