#pragma once

#include "Pello/String.h"

#include <fmt/format.h>

#include <exception>
#include <type_traits>
#include <utility>

namespace Pello {

/// Where a message comes from. The names are fixed text, never a path of the build machine, so
/// that messages are equal whoever built the library; only the line is the compiler's.
struct SourceTag {
    constexpr SourceTag(const char* theClass, const char* theSource, const char* theOperation,
                        unsigned theLine = __builtin_LINE())
        : className(theClass)
        , source(theSource)
        , operation(theOperation)
        , line(theLine) {}

    const char* className;
    const char* source;
    const char* operation;
    unsigned line;
};

/// Base of all errors of the system. `message()` (and `what()`) is exactly the formatted text: it
/// gets quoted inside other messages, so the tag stays beside it and never becomes part of it.
class Exception : public std::exception {
  public:
    Exception(const SourceTag& tag, String message)
        : tag_(tag)
        , message_(std::move(message)) {}

    const char* what() const noexcept override { return message_.c_str(); }
    const String& message() const noexcept { return message_; }
    const SourceTag& tag() const noexcept { return tag_; }

  private:
    SourceTag tag_;
    String message_;
};

/// A table, file or collection cannot be brought into use.
struct InvalidInitializeException : Exception {
    using Exception::Exception;
};

/// Shared memory holds something that its writer can never have left there.
struct CorruptionDetectedException : Exception {
    using Exception::Exception;
};

/// A mapping or a local array cannot get the memory that it needs.
struct MemoryResourceException : Exception {
    using Exception::Exception;
};

/// The operation needs a writer and the object is a reader.
struct NoPermissionException : Exception {
    using Exception::Exception;
};

/// An argument or a computed quantity lies outside what can be represented.
struct RuntimeException : Exception {
    using Exception::Exception;
};

/// How an argument of a message travels to the code that formats it: by value where that fits into
/// a register. A variable whose address went there would live in memory on the hot path too.
template <class T>
using MessageArgument = std::conditional_t<std::is_scalar_v<T>, T, const T&>;

template <class E, class... Args>
[[noreturn, gnu::cold, gnu::noinline]] void
raiseFormatted(const SourceTag& tag, fmt::string_view format, MessageArgument<Args>... args) {
    throw E(tag, fmt::vformat(format, fmt::make_format_args(args...)));
}

/// Formats and throws. Out of line, so that a check on a hot path costs a compare and a jump; the
/// format is checked against its arguments at compile time.
template <class E, class... Args>
[[noreturn, gnu::always_inline]] inline void
raise(const SourceTag& tag, fmt::format_string<const Args&...> format, const Args&... args) {
    raiseFormatted<E, std::decay_t<const Args&>...>(tag, format, args...);
}

} // namespace Pello
