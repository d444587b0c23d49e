#include "Wirra/AddressFamily.h"

#include "Mox/GenericIf.h"

#include <array>

namespace Wirra {

namespace {

constexpr std::array kFamilies = {
    Mox::Enumerator{unknownAddressFamily, "unknownAddressFamily"},
    Mox::Enumerator{ipv4AddressFamily, "ipv4AddressFamily"},
    Mox::Enumerator{ipv6AddressFamily, "ipv6AddressFamily"},
};
constexpr std::array kModuleTypes = {
    Mox::enumType<AddressFamily>({"AddressFamily", 0}, "Wirra::AddressFamily", kFamilies),
};
constexpr Mox::ModuleDescriptor kModule = {"AddressFamily", kModuleTypes};

[[maybe_unused]] const Mox::MoxTypeBase atLoad = moxType(AddressFamily{});

} // namespace

Mox::MoxTypeBase moxType(AddressFamily) {
    static const Mox::ModuleRegistration once(kModule);
    return {kModule.name, 0};
}

} // namespace Wirra
