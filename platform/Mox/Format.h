#pragma once

// printf-style filling of the fixed text forms: `%s` takes text, `%u` an unsigned number. Nothing
// else of printf exists here; number and kinds of the arguments are checked by the compiler.

#include "Mox/String.h"

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <locale>
#include <span>
#include <sstream>
#include <string_view>
#include <type_traits>

namespace Mox {

namespace FormatDetail {

template <class T>
concept Text = std::convertible_to<const T&, std::string_view>;
template <class T>
concept Number = std::unsigned_integral<T> && !std::same_as<T, bool>;

struct Argument {
    std::string_view text;
    std::uint64_t number = 0;
    bool isNumber = false;

    template <class T>
    explicit Argument(const T& value) {
        if constexpr (Number<T>) {
            number = value;
            isNumber = true;
        } else {
            text = value;
        }
    }
};

/// Never called: naming it makes the constant evaluation of a wrong format fail.
void placeholdersDoNotFitTheArguments();

/// A format text that was checked against the argument types.
template <class... Args>
class Checked {
  public:
    template <std::size_t Size>
    consteval Checked(const char (&text)[Size])
        : text_(text, Size - 1) {
        static_assert(((Text<Args> || Number<Args>)&&...), "%s takes text, %u unsigned numbers");
        constexpr std::array<char, sizeof...(Args) + 1> wanted = {(Number<Args> ? 'u' : 's')...,
                                                                  '\0'};
        std::size_t argument = 0;
        for (std::size_t at = 0; at + 1 < Size; ++at) {
            if (text[at] != '%') continue;
            ++at;
            if (text[at] != wanted[argument] || argument == sizeof...(Args)) {
                placeholdersDoNotFitTheArguments();
            }
            ++argument;
        }
        if (argument != sizeof...(Args)) placeholdersDoNotFitTheArguments();
    }

    std::string_view text() const { return text_; }

  private:
    std::string_view text_;
};

String fill(std::string_view format, std::span<const Argument> arguments);

} // namespace FormatDetail

template <class... Args>
String _fmt(FormatDetail::Checked<std::type_identity_t<Args>...> format, const Args&... args) {
    const std::array<FormatDetail::Argument, sizeof...(Args)> arguments = {
        FormatDetail::Argument(args)...};
    return FormatDetail::fill(format.text(), arguments);
}

/// What the arguments, written to a stream one after the other, give in the classic locale.
template <class... T>
String streamed(const T&... arguments) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    (text << ... << arguments);
    return text.str();
}

} // namespace Mox
