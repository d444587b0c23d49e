#pragma once

// The text form ("string representation", strep) of values, written and read back.
//
// `valueToStrep(x)` is the text of a value; reading it back gives an equal value. A type takes part
// by a `valueToStrep` next to it and either a constructor from `CharRange&` or a
// `sequenceToValue(CharRange&, T*)`. Its namespace makes the generic parts its own by
//
//     using Mox::operator<<;      streams write the text form
//     using Mox::valueToStrep;    enumerations, and calls qualified with the namespace
//     using Mox::sequenceToValue;
//     using Mox::stringValue;
//
// fmt formats every such type as its text form, with the options of a string.
//
// A value type with two or more attributes has the text
//
//     Value('Namespace::Type', ** {'first': text, 'second': text})
//
// and one with a single attribute the text of that attribute alone. Readers accept what
// `valueToStrep` writes: no other blanks, no signs, no superfluous zeros.

#include "Mox/CharRange.h"
#include "Mox/EnumType.h"
#include "Mox/Seconds.h"
#include "Mox/String.h"

#include <fmt/format.h>

#include <concepts>
#include <cstdint>
#include <limits>
#include <ostream>
#include <string_view>
#include <type_traits>

namespace Mox {

template <class T>
concept UnsignedNumber = std::unsigned_integral<T> && !std::same_as<T, bool>;

template <UnsignedNumber T>
String valueToStrep(T value) {
    return fmt::format("{}", +value);
}

/// "True" or "False". A template, so that neither pointers nor signed numbers turn into a bool.
template <std::same_as<bool> T>
String valueToStrep(T value) {
    return value ? "True" : "False";
}

/// The shortest decimal text that gives the same double; "nan", "inf" and "-inf".
String valueToStrep(const Seconds& value);

namespace StrepDetail {

/// Hides the functions above: only those that belong to the type's own namespace count here.
void valueToStrep() = delete;

template <class T>
concept HasOwnStrep = (std::is_class_v<T> || std::is_enum_v<T>)&&requires(const T& value) {
    { valueToStrep(value) } -> std::same_as<String>;
};

/// Reads a decimal number of at most `maximum`.
std::uint64_t readUnsigned(CharRange& range, std::uint64_t maximum);
bool readBool(CharRange& range);
Seconds readSeconds(CharRange& range);

} // namespace StrepDetail

using StrepDetail::HasOwnStrep;

template <HasOwnStrep T>
requires std::is_class_v<T> std::ostream& operator<<(std::ostream& stream, const T& value) {
    return stream << valueToStrep(value);
}

/// Reads one value from the front of the range and consumes it.
template <class T>
T readValue(CharRange& range) {
    if constexpr (std::same_as<T, bool>) {
        return StrepDetail::readBool(range);
    } else if constexpr (UnsignedNumber<T>) {
        return static_cast<T>(StrepDetail::readUnsigned(range, std::numeric_limits<T>::max()));
    } else if constexpr (std::same_as<T, Seconds>) {
        return StrepDetail::readSeconds(range);
    } else if constexpr (std::constructible_from<T, CharRange&>) {
        return T(range);
    } else {
        return sequenceToValue(range, static_cast<T*>(nullptr));
    }
}

/// Reads the value of an attribute; a `RangeException` on the way gets the attribute's name.
template <class T>
T deserializeAttr(CharRange& range, const char* attrName) {
    try {
        return readValue<T>(range);
    } catch (const RangeException& error) {
        rethrowFromDeserializeAttr(error, attrName);
    }
}

/// Reads a value that must be the whole text, returns it, and assigns it to `*into` if given.
template <class T>
T strepToValue(const String& text, T* into = nullptr) {
    CharRange range(text);
    T value = readValue<T>(range);
    range.checkAllDataConsumed();
    if (into != nullptr) *into = value;
    return value;
}

/// Reads the text of a value type with two or more attributes, in their order.
class ValueReader {
  public:
    ValueReader(CharRange& range, std::string_view typeName);

    template <class T>
    T attr(const char* name) {
        needName(name);
        return deserializeAttr<T>(range_, name);
    }

    /// Reads what stands before the attribute's value.
    void needName(const char* name);
    /// Reads what stands after the last attribute.
    void end();

  private:
    CharRange& range_;
    bool isFirst_ = true;
};

} // namespace Mox

template <Mox::HasOwnStrep T>
struct fmt::formatter<T> : fmt::formatter<fmt::string_view> {
    auto format(const T& value, fmt::format_context& context) const {
        return fmt::formatter<fmt::string_view>::format(valueToStrep(value), context);
    }
};
