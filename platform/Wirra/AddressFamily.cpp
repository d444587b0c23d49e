#include "Wirra/AddressFamily.h"

#include <array>

namespace Wirra {

namespace {

constexpr std::array kFamilies = {
    Mox::Enumerator{unknownAddressFamily, "unknownAddressFamily"},
    Mox::Enumerator{ipv4AddressFamily, "ipv4AddressFamily"},
    Mox::Enumerator{ipv6AddressFamily, "ipv6AddressFamily"},
};
constexpr std::array kEnumerations = {
    Mox::EnumDescriptor{0, "Wirra::AddressFamily", sizeof(AddressFamily), kFamilies},
};
constexpr Mox::ModuleDescriptor kModule = {"AddressFamily", kEnumerations};

[[maybe_unused]] const Mox::MoxTypeBase atLoad = moxType(AddressFamily{});

} // namespace

Mox::MoxTypeBase moxType(AddressFamily) {
    static const Mox::ModuleRegistration once(kModule);
    return {kModule.name, 0};
}

} // namespace Wirra
