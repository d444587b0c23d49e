#include "Mox/GenericIf.h"

#include <algorithm>

namespace Mox {

namespace {

Pello::SourceTag tagOf(const char* operation) { return {"GenericIf", "Mox/GenericIf", operation}; }

const AttributeDescriptor* find(const TypeDescriptor& type, const MoxAttrBase& attribute) {
    if (attribute.type != type.handle) return nullptr;
    const auto at = std::find_if(type.attributes.begin(), type.attributes.end(),
                                 [&attribute](const AttributeDescriptor& each) {
                                     return each.number == attribute.attributeId;
                                 });
    return at == type.attributes.end() ? nullptr : &*at;
}

/// Entities are no values: they are neither made in place nor read from text.
const GenericFunctions& valueFunctions(const TypeDescriptor& type) {
    if (type.kind == TypeKind::entity) GenericIfImpl::throwTypeException(type.name, "a value type");
    return *type.functions;
}

} // namespace

void genericIfConstruct(const TypeDescriptor& type, void* dst, const void* from) {
    valueFunctions(type).construct(dst, from);
}

void genericIfDestruct(const TypeDescriptor& type, void* value) {
    valueFunctions(type).destruct(value);
}

std::uint32_t genericIfHash(const TypeDescriptor& type, const void* value) {
    return valueFunctions(type).hash(type, value);
}

String genericIfStrRep(const TypeDescriptor& type, const void* value) {
    return type.functions->strRep(type, value);
}

void genericIfStrepToValue(const TypeDescriptor& type, const String& text, void* into) {
    valueFunctions(type).strepToValue(type, text, into);
}

void* genericIfVoidPtrIs(const TypeDescriptor& type, void* pointer, const MoxTypeBase& fromType,
                         const MoxTypeBase& toType) {
    const GenericFunctions& functions = *type.functions;
    if (fromType == toType && fromType == type.handle) return pointer;
    if (functions.toBase != nullptr) {
        if (fromType == type.handle && toType == functions.base) return functions.toBase(pointer);
        if (fromType == functions.base && toType == type.handle) return functions.fromBase(pointer);
    }
    const TypeDescriptor* const from = typeDescriptor(fromType);
    GenericIfImpl::throwTypeException(from != nullptr ? from->name : fromType.module, type.name);
}

void genericIfConstructFromCtorArgs(const TypeDescriptor& type, void* out, void* const* args) {
    if (type.functions->constructFromCtorArgs == nullptr) {
        GenericIfImpl::throwTypeException(type.name, "a type with a constructor");
    }
    type.functions->constructFromCtorArgs(out, args);
}

unsigned genericIfAttributeOp(const TypeDescriptor& type, void* out, void* instance,
                              const MoxAttrBase* attribute, unsigned op, const void* other,
                              void* const* args) {
    if (attribute == nullptr) return type.functions->wholeOp(out, instance, op, other);
    const AttributeDescriptor* const found = find(type, *attribute);
    return found == nullptr ? unsigned{resultUnknownAttribute} : found->op(out, instance, op, args);
}

void* genericIfIterator(const TypeDescriptor& type, const void* instance, const void* key,
                        const MoxAttrBase& attribute, const IteratorOps** iteratorOpsOut) {
    const AttributeDescriptor* const found = find(type, attribute);
    if (found == nullptr || found->iterate == nullptr) return nullptr;
    return found->iterate(instance, key, iteratorOpsOut);
}

Ptr<PtrInterface> newEntityForDir(const TypeDescriptor& type, const String& name, void* args) {
    if (type.functions->newEntity == nullptr) {
        GenericIfImpl::throwTypeException(type.name, "a type of entities");
    }
    if (args != nullptr) throwNewEntityArgsException(type.handle);
    return type.functions->newEntity(name);
}

AnyValue::AnyValue(const TypeDescriptor& type, const void* from)
    : type_(type) {
    std::size_t space = std::size_t{type.bytes} + type.alignment;
    room_ = std::make_unique<std::byte[]>(space);
    void* at = room_.get();
    value_ = std::align(type.alignment, type.bytes, at, space);
    genericIfConstruct(type, value_, from);
}

void throwNewEntityArgsException(const MoxTypeBase& type) {
    const TypeDescriptor* const descriptor = typeDescriptor(type);
    Pello::raise<NewEntityArgsException>(tagOf("newEntityForDir"),
                                         "a new {} takes no arguments but its name",
                                         descriptor != nullptr ? descriptor->name : type.module);
}

namespace GenericIfImpl {

void throwUnhashableException(std::string_view type) {
    Pello::raise<UnhashableException>(tagOf("hash"), "values of {} have no hash", type);
}

void throwTypeException(std::string_view found, std::string_view wanted) {
    Pello::raise<TypeException>(tagOf("type"), "wanted {}, found {}", wanted, found);
}

} // namespace GenericIfImpl

namespace {

/// Text is its own text form here: it takes part in no other one.
struct StringMethods : GenericIfImpl::GenericIfValueMethods<String> {
    static String strRep(const TypeDescriptor& /*type*/, const void* value) {
        return *static_cast<const String*>(value);
    }
    static void read(const TypeDescriptor& /*type*/, const String& text, void* into) {
        *static_cast<String*>(into) = text;
    }
};
constexpr GenericFunctions kString = [] {
    GenericFunctions functions = {};
    functions.construct = StringMethods::construct;
    functions.destruct = StringMethods::destruct;
    functions.hash = StringMethods::hash;
    functions.strRep = StringMethods::strRep;
    functions.strepToValue = StringMethods::read;
    functions.constructFromCtorArgs = StringMethods::fromCtorArgs<String>;
    functions.wholeOp = StringMethods::wholeOp;
    return functions;
}();

constexpr std::array kBuiltIn = {
    valueType<std::uint32_t, std::uint32_t>({"Mox", 0}, "U32"),
    valueType<bool, bool>({"Mox", 1}, "bool"),
    TypeDescriptor{.handle = {"Mox", 2},
                   .name = "Mox::String",
                   .bytes = sizeof(String),
                   .kind = TypeKind::value,
                   .alignment = alignof(String),
                   .plainlyCopyable = false,
                   .functions = &kString},
    valueType<Seconds, Seconds>({"Mox", 3}, "Mox::Seconds"),
};
constexpr ModuleDescriptor kModule = {"Mox", kBuiltIn};
const ModuleRegistration atLoad(kModule);

} // namespace

} // namespace Mox
