#pragma once

// Reading values back from their text form.

#include "Mox/String.h"
#include "Pello/Exception.h"

#include <cstddef>
#include <string_view>

namespace Mox {

/// Text that does not parse. The message begins with the attributes on the way to the failure,
/// outermost first: "while reading 'key': while reading 'mType': ...".
struct RangeException : Pello::Exception {
    using Exception::Exception;
};

/// Raises `error` again with the attribute put in front of its message.
[[noreturn]] void rethrowFromDeserializeAttr(const RangeException& error, const char* attrName);

/// The rest of a text that is read from front to back. Refers to the text, which must outlive it.
/// Every operation that fails raises `RangeException` and consumes nothing.
class CharRange {
  public:
    explicit CharRange(std::string_view text)
        : text_(text) {}

    bool empty() const { return consumed_ == text_.size(); }
    std::string_view rest() const { return text_.substr(consumed_); }
    std::size_t consumed() const { return consumed_; }

    /// The next character; 0 at the end.
    char front() const { return empty() ? '\0' : text_[consumed_]; }

    bool startsWith(std::string_view literal) const { return rest().starts_with(literal); }

    /// Skips `count` characters, which must be there.
    void consume(std::size_t count);

    /// Skips `literal`; anything else is an error.
    void needString(std::string_view literal);

    /// An error when characters are left.
    void checkAllDataConsumed() const;

    /// The longest front part whose characters all satisfy the predicate; not consumed.
    template <class Predicate>
    std::string_view peekWhile(Predicate predicate) const {
        const std::string_view text = rest();
        std::size_t length = 0;
        while (length < text.size() && predicate(text[length])) {
            ++length;
        }
        return text.substr(0, length);
    }

    /// The longest identifier `[A-Za-z_][A-Za-z0-9_]*` at the front, possibly empty; not consumed.
    std::string_view peekIdentifier() const;

    /// What stands at the front, for messages: a quoted excerpt, or "the end".
    String found() const;

  private:
    std::string_view text_;
    std::size_t consumed_ = 0;
};

} // namespace Mox
