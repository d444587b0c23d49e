#pragma once

// The registry of modules and of the types that they define.
//
// A module describes its types in constant tables and hands them over once, when the code that
// defines it is loaded. From then on a type is found by its handle, the module's name and the
// number within the module, and by its name; what the description says of its attributes, and the
// functions that it points at, are all that is needed to work with values and objects of a type
// that the program does not know (Mox/GenericIf.h). Nothing is ever unregistered, so what is found
// stays valid for the life of the process. Every function may be called from any thread and from
// static initialisers.

#include "Mox/String.h"

#include <cstdint>
#include <ios>
#include <span>
#include <string_view>
#include <vector>

namespace Mox {

class PtrInterface;
template <class T>
class Ptr;

/// Names a registered type.
struct MoxTypeBase {
    std::string_view module;
    std::uint32_t typeNumber = 0;

    friend constexpr bool operator==(const MoxTypeBase&, const MoxTypeBase&) = default;
};

/// The number of an attribute within its type.
using AttributeId = std::uint32_t;

/// Names an attribute of a type.
struct MoxAttrBase {
    MoxTypeBase type;
    AttributeId attributeId = 0;
};

struct Enumerator {
    std::uint32_t number;
    std::string_view name;
};

enum class TypeKind : std::uint8_t {
    enumeration,
    value,  ///< copyable, without identity
    entity, ///< counted by references, with a name and a parent; made by a factory
};

enum class AttributeKind : std::uint8_t {
    construction,   ///< set when the value is made, readable only
    settable,       ///< may be written, too
    table,          ///< values, identified by their attribute `key`
    reference,      ///< to an entity
    constant,       ///< the same for every object
    method,         ///< may change the object
    readOnlyMethod, ///< may not
    staticFunction, ///< needs none
};

struct Parameter {
    std::string_view name;
    std::string_view type;
};

/// Moves through the elements of a table attribute.
struct IteratorOps {
    bool (*iterNonnull)(const void* iterator); ///< whether it stands on an element
    void (*iterInc)(void* iterator);
    void (*iterKey)(const void* iterator, void* out); ///< copies the element's key
    void (*iterObj)(const void* iterator, void* out); ///< copies the element
    void (*iterDel)(void* iterator);
};

struct AttributeDescriptor {
    AttributeId number;
    std::string_view name;
    AttributeKind kind;
    /// Of the value, of a table's elements, or of what a call returns: empty when that is nothing.
    std::string_view type;
    std::string_view keyType = {};              ///< of a table
    std::span<const Parameter> parameters = {}; ///< of a call
    /// An operation of `genericIfAttributeOp` on this attribute.
    unsigned (*op)(void* out, void* instance, unsigned op, void* const* args) = nullptr;
    /// For a table: an iterator on the element of that key or the next one; without a key, on the
    /// first.
    void* (*iterate)(const void* instance, const void* key, const IteratorOps** ops) = nullptr;
};

struct TypeDescriptor;

/// What can be done with instances of a type without knowing it; see Mox/GenericIf.h.
struct GenericFunctions {
    void (*construct)(void* dst, const void* from);
    void (*destruct)(void* value);
    std::uint32_t (*hash)(const TypeDescriptor& type, const void* value);
    String (*strRep)(const TypeDescriptor& type, const void* value);
    void (*strepToValue)(const TypeDescriptor& type, const String& text, void* into);
    void (*constructFromCtorArgs)(void* out, void* const* args);
    /// The operations on the whole value.
    unsigned (*wholeOp)(void* out, const void* value, unsigned op, const void* other);
    /// Between the type and one that it derives from; null when that is not `base`.
    void* (*toBase)(void* pointer);
    void* (*fromBase)(void* pointer);
    MoxTypeBase base;
    Ptr<PtrInterface> (*newEntity)(const String& name);
};

struct TypeDescriptor {
    MoxTypeBase handle;
    std::string_view name; ///< with its namespace
    std::uint32_t bytes;   ///< size of a value or an object
    std::span<const Enumerator> enumerators = {};
    TypeKind kind = TypeKind::enumeration;
    std::uint32_t alignment = 0;
    /// Whether the copy of a value is that of its bytes.
    bool plainlyCopyable = true;
    std::span<const Parameter> constructorParameters = {};
    std::span<const AttributeDescriptor> attributes = {}; ///< in the order of their numbers
    const GenericFunctions* functions = nullptr;
};

/// A type of another module that the attributes of this one refer to.
struct ForeignType {
    std::string_view name;
    MoxTypeBase handle;
};

struct ModuleDescriptor {
    std::string_view name;
    std::span<const TypeDescriptor> types; ///< in the order of their numbers
    std::span<const ForeignType> foreignTypes = {};
};

/// Registers a module. The descriptor and all that it refers to live for ever. Registering the
/// same descriptor again changes nothing; another module of the same name is fatal.
void moxModuleIs(const ModuleDescriptor* module);

/// All modules, in the order of their names.
std::vector<const ModuleDescriptor*> modules();
/// Null when there is no such type.
const TypeDescriptor* typeDescriptor(const MoxTypeBase& type);
/// The type of that name, with its namespace or without; null when there is none, or more than one.
const TypeDescriptor* typeNamed(std::string_view name);
/// What a module means by the name of a type: one of its own, one that it refers to, or a type that
/// is built in or known by name alone. Null when there is none.
const TypeDescriptor* typeIn(const ModuleDescriptor& module, std::string_view name);
const ModuleDescriptor* moduleNamed(std::string_view name);

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
