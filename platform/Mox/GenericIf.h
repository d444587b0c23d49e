#pragma once

// The generic interface: what can be done with a value or an object through its type's description
// alone. The functions below take untyped pointers; who calls them knows the types from the
// registry (Mox/Module.h) and keeps to these rules:
//
//   - `out` points at a live value of the type that the operation gives, and is assigned to; it may
//     be null where nothing is wanted.
//   - `args` points at one pointer for each argument, each at a live value of the argument's type.
//   - A reference to an entity is a `Ptr<PtrInterface>` in both places, whatever the entity's type.
//
// The rest of the file makes these functions for a type: `valueType`, `enumType` and the
// attributes `construction`, `settable`, `constant`, `method`, `staticFunction`, `table` and
// `reference`. All of it is constant data.

#include "Mox/Hash.h"
#include "Mox/Module.h"
#include "Mox/Ptr.h"
#include "Mox/Strep.h"
#include "Pello/Exception.h"
#include "Pello/TypeName.h"

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

namespace Mox {

/// A pointer, a reference or an argument of another type than the operation takes.
struct TypeException : Pello::Exception {
    using Exception::Exception;
};
/// A hash was asked of a value that has none.
struct UnhashableException : Pello::Exception {
    using Exception::Exception;
};
/// A new entity takes no arguments but its name.
struct NewEntityArgsException : Pello::Exception {
    using Exception::Exception;
};

/// Operations on an attribute, or on the whole value.
enum GenericOp : unsigned {
    opRead = 0,     ///< of a table: the element of a key, the default one when there is none
    opWrite = 1,    ///< of a table: stores an element under its key
    opDelete = 2,   ///< of a table, by key; gives the element, or the default one
    opSize = 3,     ///< of a table, U32
    opReserved = 4, ///< of a table: gives 0
    opHas = 5,      ///< of a table, by key; gives a bool
    opCall = 10,    ///< calls a method or a static function
    opDiffers = 11, ///< whether the value differs from a default one, bool
    opEqual = 12,   ///< whether it equals another one, bool
    opLess = 13,    ///< of keys: whether it is less than another one, bool
};

/// What an operation comes to.
enum GenericResult : unsigned {
    resultDone = 0,
    resultUnsupported = 1,
    resultUnknownAttribute = 2,
};

// The operations themselves.

/// Makes a value in raw memory: a copy of `from`, or a default one when that is null.
void genericIfConstruct(const TypeDescriptor& type, void* dst, const void* from);
void genericIfDestruct(const TypeDescriptor& type, void* value);
/// Of keys and enumerations, with seed 0; throws `UnhashableException` for all others.
std::uint32_t genericIfHash(const TypeDescriptor& type, const void* value);
/// The text form.
String genericIfStrRep(const TypeDescriptor& type, const void* value);
/// Reads the text form into a live value. Throws `RangeException`.
void genericIfStrepToValue(const TypeDescriptor& type, const String& text, void* into);
/// Converts a pointer between the type and one that it derives from. Throws `TypeException` for
/// other types.
void* genericIfVoidPtrIs(const TypeDescriptor& type, void* pointer, const MoxTypeBase& fromType,
                         const MoxTypeBase& toType);
/// Makes a value (or, in `Ptr<PtrInterface>`, an entity) of its constructor's parameters.
void genericIfConstructFromCtorArgs(const TypeDescriptor& type, void* out, void* const* args);
/// An operation on an attribute of the instance, which is null for constants and static functions,
/// or without an attribute on the whole value. Gives a `GenericResult`.
unsigned genericIfAttributeOp(const TypeDescriptor& type, void* out, void* instance,
                              const MoxAttrBase* attribute, unsigned op, const void* other,
                              void* const* args);
/// An iterator over a table attribute, on the element of `key`, the next one, or without a key on
/// the first; null for every other attribute. `iteratorOpsOut` gets its operations.
void* genericIfIterator(const TypeDescriptor& type, const void* instance, const void* key,
                        const MoxAttrBase& attribute, const IteratorOps** iteratorOpsOut);
/// An entity of that name with its notifications on. Throws `NewEntityArgsException` when there are
/// arguments, and `TypeException` for a type that makes no entities.
Ptr<PtrInterface> newEntityForDir(const TypeDescriptor& type, const String& name, void* args);

/// A value of a value type or an enumeration, for those who know the type by its description alone.
class AnyValue {
  public:
    /// A copy of `from`, or the default value.
    explicit AnyValue(const TypeDescriptor& type, const void* from = nullptr);
    ~AnyValue() { genericIfDestruct(type_, value_); }
    AnyValue(const AnyValue&) = delete;
    AnyValue& operator=(const AnyValue&) = delete;

    const TypeDescriptor& type() const { return type_; }
    void* get() const { return value_; }
    String text() const { return genericIfStrRep(type_, value_); }
    /// Throws `RangeException`.
    void textIs(const String& text) { genericIfStrepToValue(type_, text, value_); }

  private:
    const TypeDescriptor& type_;
    std::unique_ptr<std::byte[]> room_;
    void* value_;
};

[[noreturn]] void throwNewEntityArgsException(const MoxTypeBase& type);

namespace GenericIfImpl {

[[noreturn]] void throwUnhashableException(std::string_view type);
[[noreturn]] void throwTypeException(std::string_view found, std::string_view wanted);

template <class T>
T& at(void* pointer) {
    return *static_cast<T*>(pointer);
}

template <class T>
inline constexpr bool isPtr = false;
template <class T>
inline constexpr bool isPtr<Ptr<T>> = true;

template <class T>
struct PtrTarget;
template <class T>
struct PtrTarget<Ptr<T>> {
    using Type = T;
};

/// Puts a result where it is wanted.
template <class R>
void give(void* out, R&& result) {
    using T = std::remove_cvref_t<R>;
    if (out == nullptr) return;
    if constexpr (isPtr<T>) {
        using Target = std::remove_const_t<typename PtrTarget<T>::Type>;
        at<Ptr<PtrInterface>>(out) = const_cast<Target*>(result.get());
    } else {
        at<T>(out) = std::forward<R>(result);
    }
}

/// The argument of type A that a pointer of `args` leads to.
template <class A>
decltype(auto) take(void* argument) {
    using T = std::remove_cvref_t<A>;
    if constexpr (isPtr<T>) {
        using Target = typename PtrTarget<T>::Type;
        auto* const target = dynamic_cast<Target*>(at<Ptr<PtrInterface>>(argument).get());
        if (target == nullptr) throwTypeException("another reference", Pello::typeName<Target>());
        return T(target);
    } else {
        return static_cast<const T&>(at<T>(argument));
    }
}

template <class F>
struct Signature;
template <class R, class... A>
struct Signature<R (*)(A...)> {
    using Result = R;
    using Arguments = std::tuple<A...>;
};
template <class C, class R, class... A>
struct Signature<R (C::*)(A...)> : Signature<R (*)(A...)> {};
template <class C, class R, class... A>
struct Signature<R (C::*)(A...) const> : Signature<R (*)(A...)> {};

/// Calls a function with `bound` in front of the arguments of `args`.
template <class Function, class... Bound>
void call(void* out, Function function, void* const* args, Bound&... bound) {
    using Arguments = typename Signature<Function>::Arguments;
    using Result = typename Signature<Function>::Result;
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        const auto run = [&]() -> Result {
            return std::invoke(function, bound...,
                               take<std::tuple_element_t<I, Arguments>>(args[I])...);
        };
        if constexpr (std::is_void_v<Result>) {
            run();
        } else {
            give(out, run());
        }
    }
    (std::make_index_sequence<std::tuple_size_v<Arguments>>());
}

template <class T, auto Get>
unsigned constructionOp(void* out, void* instance, unsigned op, void* const* /*args*/) {
    if (op != opRead) return resultUnsupported;
    give(out, std::invoke(Get, std::as_const(at<T>(instance))));
    return resultDone;
}

template <class T, auto Get, auto Set>
unsigned settableOp(void* out, void* instance, unsigned op, void* const* args) {
    if (op != opWrite) return constructionOp<T, Get>(out, instance, op, args);
    using V = std::remove_cvref_t<decltype(std::invoke(Get, at<T>(instance)))>;
    std::invoke(Set, at<T>(instance), take<V>(args[0]));
    return resultDone;
}

template <auto Value, class As>
unsigned constantOp(void* out, void* /*instance*/, unsigned op, void* const* /*args*/) {
    if (op != opRead) return resultUnsupported;
    give(out, As(*Value));
    return resultDone;
}

template <class T, auto Method>
unsigned methodOp(void* out, void* instance, unsigned op, void* const* args) {
    if (op != opCall) return resultUnsupported;
    call(out, Method, args, at<T>(instance));
    return resultDone;
}

template <auto Function>
unsigned staticOp(void* out, void* /*instance*/, unsigned op, void* const* args) {
    if (op != opCall) return resultUnsupported;
    call(out, Function, args);
    return resultDone;
}

template <class T, auto Get, auto Set>
unsigned referenceOp(void* out, void* instance, unsigned op, void* const* args) {
    if (op == opRead) {
        give(out, std::invoke(Get, std::as_const(at<T>(instance))));
    } else if (op == opWrite) {
        using Reference = std::remove_cvref_t<decltype(std::invoke(Get, at<T>(instance)))>;
        const bool none = !at<Ptr<PtrInterface>>(args[0]);
        std::invoke(Set, at<T>(instance), none ? Reference() : take<Reference>(args[0]));
    } else {
        return resultUnsupported;
    }
    return resultDone;
}

/// `Table` has the members of one table attribute of `Owner`, the key and element types, and the
/// table's front.
template <class Table>
struct TableAttribute {
    using Owner = typename Table::Owner;
    using Key = typename Table::Key;
    using Element = typename Table::Element;
    using Map = std::remove_cvref_t<decltype(Table::map(std::declval<const Owner&>()))>;
    using Iterator = typename Map::IteratorConst;

    static unsigned op(void* out, void* instance, unsigned code, void* const* args) {
        Owner& owner = at<Owner>(instance);
        switch (code) {
        case opRead:
            give(out, Table::get(owner, take<Key>(args[0])));
            break;
        case opWrite:
            Table::is(owner, take<Element>(args[0]));
            break;
        case opDelete:
            give(out, Table::del(owner, take<Key>(args[0])));
            break;
        case opSize:
            give(out, static_cast<std::uint32_t>(Table::map(owner).members()));
            break;
        case opReserved:
            give(out, std::uint32_t{0});
            break;
        case opHas: {
            bool found = false;
            Table::map(owner).safeLookup(take<Key>(args[0]), found);
            give(out, bool{found});
            break;
        }
        default:
            return resultUnsupported;
        }
        return resultDone;
    }

    static void* iterate(const void* instance, const void* key, const IteratorOps** ops) {
        static constexpr IteratorOps kOps = {
            [](const void* it) { return static_cast<const Iterator*>(it)->valid(); },
            [](void* it) { at<Iterator>(it).advance(); },
            [](const void* it, void* out) {
                give(out, Key((*static_cast<const Iterator*>(it))->key()));
            },
            [](const void* it, void* out) {
                const Element& element = **static_cast<const Iterator*>(it);
                give(out, Element(element));
            },
            [](void* it) { delete &at<Iterator>(it); },
        };
        *ops = &kOps;
        const Map& map = Table::map(*static_cast<const Owner*>(instance));
        if (key == nullptr) return new Iterator(&map);
        return new Iterator(&map, *static_cast<const Key*>(key));
    }
};

/// The generic functions of a value type.
template <class T>
struct GenericIfValueMethods {
    static void construct(void* dst, const void* from) {
        if (from == nullptr) {
            std::construct_at(static_cast<T*>(dst));
        } else {
            std::construct_at(static_cast<T*>(dst), *static_cast<const T*>(from));
        }
    }
    static void destruct(void* value) { std::destroy_at(static_cast<T*>(value)); }
    static std::uint32_t hash(const TypeDescriptor& type, const void* value) {
        const T& typed = *static_cast<const T*>(value);
        if constexpr (requires { typed.hash(0U); }) {
            return typed.hash(0);
        } else if constexpr (requires { typed.hash(); }) {
            return typed.hash();
        } else {
            throwUnhashableException(type.name);
        }
    }
    static String strRep(const TypeDescriptor& /*type*/, const void* value) {
        return valueToStrep(*static_cast<const T*>(value));
    }
    static void read(const TypeDescriptor& /*type*/, const String& text, void* into) {
        Mox::strepToValue<T>(text, static_cast<T*>(into));
    }
    static unsigned wholeOp(void* out, const void* value, unsigned op, const void* other) {
        const T& left = *static_cast<const T*>(value);
        const T& right = *static_cast<const T*>(other);
        if (op == opDiffers) {
            give(out, !(left == T()));
        } else if (op == opEqual) {
            give(out, left == right);
        } else if (op == opLess) {
            if constexpr (requires { left < right; }) {
                give(out, left < right);
            } else {
                return resultUnsupported;
            }
        } else {
            return resultUnsupported;
        }
        return resultDone;
    }
    /// `T(P...)` of the pointers' values.
    template <class... P>
    static void fromCtorArgs(void* out, void* const* args) {
        [&]<std::size_t... I>(std::index_sequence<I...>) { give(out, T(take<P>(args[I])...)); }
        (std::index_sequence_for<P...>());
    }

    template <class... P>
    static constexpr GenericFunctions kFunctions = {construct, destruct,           hash,    strRep,
                                                    read,      fromCtorArgs<P...>, wholeOp, nullptr,
                                                    nullptr,   MoxTypeBase{},      nullptr};
};

/// The generic functions of all enumerations of one width.
template <class Number>
struct GenericIfEnumMethods {
    static void construct(void* dst, const void* from) {
        std::construct_at(static_cast<Number*>(dst),
                          from == nullptr ? Number{} : *static_cast<const Number*>(from));
    }
    static void destruct(void* /*value*/) {}
    static std::uint32_t hash(const TypeDescriptor& /*type*/, const void* value) {
        return hashSingleAttr<Number>(0, *static_cast<const Number*>(value));
    }
    static String strRep(const TypeDescriptor& type, const void* value) {
        return EnumType<Number>::valueToStrep(*static_cast<const Number*>(value), type.handle);
    }
    static void read(const TypeDescriptor& type, const String& text, void* into) {
        CharRange range(text);
        const Number value = EnumType<Number>::sequenceToValue(range, type.handle);
        range.checkAllDataConsumed();
        at<Number>(into) = value;
    }
    static void fromCtorArgs(void* out, void* const* args) {
        at<Number>(out) = at<Number>(args[0]);
    }

    static constexpr GenericFunctions kFunctions = {construct,
                                                    destruct,
                                                    hash,
                                                    strRep,
                                                    read,
                                                    fromCtorArgs,
                                                    GenericIfValueMethods<Number>::wholeOp,
                                                    nullptr,
                                                    nullptr,
                                                    MoxTypeBase{},
                                                    nullptr};
};

} // namespace GenericIfImpl

// Descriptions.

template <RegisteredEnum E>
constexpr TypeDescriptor enumType(const MoxTypeBase& handle, std::string_view name,
                                  std::span<const Enumerator> enumerators) {
    using Methods = GenericIfImpl::GenericIfEnumMethods<std::underlying_type_t<E>>;
    return {.handle = handle,
            .name = name,
            .bytes = sizeof(E),
            .enumerators = enumerators,
            .kind = TypeKind::enumeration,
            .alignment = alignof(E),
            .functions = &Methods::kFunctions};
}

/// A value type whose constructor takes values of the types P.
template <class T, class... P>
constexpr TypeDescriptor valueType(const MoxTypeBase& handle, std::string_view name,
                                   std::span<const Parameter> parameters = {},
                                   std::span<const AttributeDescriptor> attributes = {}) {
    using Methods = GenericIfImpl::GenericIfValueMethods<T>;
    return {.handle = handle,
            .name = name,
            .bytes = sizeof(T),
            .kind = TypeKind::value,
            .alignment = alignof(T),
            .plainlyCopyable = std::is_trivially_copyable_v<T>,
            .constructorParameters = parameters,
            .attributes = attributes,
            .functions = &Methods::template kFunctions<P...>};
}

template <class T, auto Get>
constexpr AttributeDescriptor construction(AttributeId number, std::string_view name,
                                           std::string_view type) {
    return {.number = number,
            .name = name,
            .kind = AttributeKind::construction,
            .type = type,
            .op = GenericIfImpl::constructionOp<T, Get>};
}

template <class T, auto Get, auto Set>
constexpr AttributeDescriptor settable(AttributeId number, std::string_view name,
                                       std::string_view type) {
    return {.number = number,
            .name = name,
            .kind = AttributeKind::settable,
            .type = type,
            .op = GenericIfImpl::settableOp<T, Get, Set>};
}

/// Of the constant that the pointer leads to.
template <auto Value, class As>
constexpr AttributeDescriptor constant(AttributeId number, std::string_view name,
                                       std::string_view type) {
    return {.number = number,
            .name = name,
            .kind = AttributeKind::constant,
            .type = type,
            .op = GenericIfImpl::constantOp<Value, As>};
}

/// `type` is that of the result, empty when there is none.
template <class T, auto Method>
constexpr AttributeDescriptor method(AttributeId number, std::string_view name,
                                     std::span<const Parameter> parameters = {},
                                     std::string_view type = {}) {
    return {.number = number,
            .name = name,
            .kind = AttributeKind::method,
            .type = type,
            .parameters = parameters,
            .op = GenericIfImpl::methodOp<T, Method>};
}

template <class T, auto Method>
constexpr AttributeDescriptor readOnlyMethod(AttributeId number, std::string_view name,
                                             std::span<const Parameter> parameters,
                                             std::string_view type) {
    AttributeDescriptor attribute = method<T, Method>(number, name, parameters, type);
    attribute.kind = AttributeKind::readOnlyMethod;
    return attribute;
}

template <auto Function>
constexpr AttributeDescriptor staticFunction(AttributeId number, std::string_view name,
                                             std::span<const Parameter> parameters,
                                             std::string_view type) {
    return {.number = number,
            .name = name,
            .kind = AttributeKind::staticFunction,
            .type = type,
            .parameters = parameters,
            .op = GenericIfImpl::staticOp<Function>};
}

template <class Table>
constexpr AttributeDescriptor table(AttributeId number, std::string_view name,
                                    std::string_view type, std::string_view keyType) {
    return {.number = number,
            .name = name,
            .kind = AttributeKind::table,
            .type = type,
            .keyType = keyType,
            .op = GenericIfImpl::TableAttribute<Table>::op,
            .iterate = GenericIfImpl::TableAttribute<Table>::iterate};
}

template <class T, auto Get, auto Set>
constexpr AttributeDescriptor reference(AttributeId number, std::string_view name,
                                        std::string_view type) {
    return {.number = number,
            .name = name,
            .kind = AttributeKind::reference,
            .type = type,
            .op = GenericIfImpl::referenceOp<T, Get, Set>};
}

} // namespace Mox
