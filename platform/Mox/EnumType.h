#pragma once

// Names and numbers of registered enumerations.
//
// An enumeration takes part by an overload of `moxType` next to it that returns its handle; the
// templates below then give it its conversions. A namespace with such enumerations makes them its
// own by using-declarations (see Mox/Strep.h).

#include "Mox/CharRange.h"
#include "Mox/Module.h"
#include "Mox/String.h"

#include <concepts>
#include <cstdint>
#include <ostream>
#include <type_traits>

namespace Mox {

/// The enumeration service for values of one width. A number without a name is kept and prints as
/// the decimal number, so that values of a newer writer survive; a name without a number, and a
/// number beyond the width, raise `RangeException`. A handle that is not registered is fatal.
template <class Number>
struct EnumType {
    static Number instance(std::uint32_t number, const MoxTypeBase& type);
    static Number instance(const String& name, const MoxTypeBase& type);
    static std::ostream& operatorLessLess(std::ostream& stream, Number value,
                                          const MoxTypeBase& type);
    /// The bare registered name.
    static String valueToStrep(Number value, const MoxTypeBase& type);
    /// Takes the longest identifier, or a decimal number: a name never matches as the beginning
    /// of a longer word.
    static Number sequenceToValue(CharRange& range, const MoxTypeBase& type);
    static String stringValue(Number value, const MoxTypeBase& type);
};

extern template struct EnumType<unsigned char>;
extern template struct EnumType<unsigned int>;

template <class E>
concept RegisteredEnum = std::is_enum_v<E> && requires(E value) {
    { moxType(value) } -> std::same_as<MoxTypeBase>;
};

template <RegisteredEnum E>
using EnumService = EnumType<std::underlying_type_t<E>>;

template <RegisteredEnum E>
E enumInstance(std::uint32_t number) {
    return static_cast<E>(EnumService<E>::instance(number, moxType(E{})));
}

template <RegisteredEnum E>
E enumInstance(const String& name) {
    return static_cast<E>(EnumService<E>::instance(name, moxType(E{})));
}

template <RegisteredEnum E>
std::ostream& operator<<(std::ostream& stream, const E& value) {
    return EnumService<E>::operatorLessLess(stream, value, moxType(value));
}

template <RegisteredEnum E>
String valueToStrep(const E& value) {
    return EnumService<E>::valueToStrep(value, moxType(value));
}

/// The pointer selects the overload and is not used.
template <RegisteredEnum E>
E sequenceToValue(CharRange& range, E* /*selector*/) {
    return static_cast<E>(EnumService<E>::sequenceToValue(range, moxType(E{})));
}

template <RegisteredEnum E>
String stringValue(E value) {
    return EnumService<E>::stringValue(value, moxType(value));
}

} // namespace Mox
