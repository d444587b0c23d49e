#pragma once

// The registry of modules and of the types that they define.
//
// A module describes its types in constant tables and hands them over once, when the code that
// defines it is loaded. From then on a type is found by its handle, the module's name and the
// number within the module. Nothing is ever unregistered, so what is found stays valid for the
// life of the process. Every function may be called from any thread and from static initialisers.

#include <cstdint>
#include <ios>
#include <span>
#include <string_view>

namespace Mox {

/// Names a registered type.
struct MoxTypeBase {
    std::string_view module;
    std::uint32_t typeNumber = 0;

    friend constexpr bool operator==(const MoxTypeBase&, const MoxTypeBase&) = default;
};

struct Enumerator {
    std::uint32_t number;
    std::string_view name;
};

struct EnumDescriptor {
    std::uint32_t typeNumber;
    std::string_view name; ///< with its namespace
    std::uint32_t bytes;   ///< size of a stored value: 1 or 4
    std::span<const Enumerator> enumerators;
};

struct ModuleDescriptor {
    std::string_view name;
    std::span<const EnumDescriptor> enumerations;
};

/// Registers a module. The descriptor and all that it refers to live for ever. Registering the
/// same descriptor again changes nothing; another module of the same name is fatal.
void moxModuleIs(const ModuleDescriptor* module);

/// Null when there is no such enumeration.
const EnumDescriptor* enumDescriptor(const MoxTypeBase& type);

/// Registers a module by being constructed. Each module holds one as a function-local static that
/// every use of its types passes through, and touches it at load: conversions then work from any
/// static initialiser and however the objects of a static library were selected.
class ModuleRegistration {
  public:
    explicit ModuleRegistration(const ModuleDescriptor& module) { moxModuleIs(&module); }

  private:
    /// The functions of a module write to streams.
    std::ios_base::Init streams_;
};

} // namespace Mox
