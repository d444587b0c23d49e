#include "Mox/CharRange.h"

#include <fmt/format.h>

namespace Mox {

namespace {

// Locale-independent on purpose: the text form is the same everywhere.
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

} // namespace

void rethrowFromDeserializeAttr(const RangeException& error, const char* attrName) {
    throw RangeException(error.tag(),
                         fmt::format("while reading '{}': {}", attrName, error.message()));
}

void CharRange::consume(std::size_t count) {
    if (count > rest().size()) {
        Pello::raise<RangeException>({"CharRange", "Mox/CharRange", "consume"},
                                     "wanted {} characters at offset {}, found {}", count,
                                     consumed_, rest().size());
    }
    consumed_ += count;
}

void CharRange::needString(std::string_view literal) {
    if (!startsWith(literal)) {
        Pello::raise<RangeException>({"CharRange", "Mox/CharRange", "needString"},
                                     "wanted \"{}\" at offset {}, found {}", literal, consumed_,
                                     found());
    }
    consumed_ += literal.size();
}

void CharRange::checkAllDataConsumed() const {
    if (!empty()) {
        Pello::raise<RangeException>({"CharRange", "Mox/CharRange", "checkAllDataConsumed"},
                                     "wanted the end at offset {}, found {}", consumed_, found());
    }
}

std::string_view CharRange::peekIdentifier() const {
    if (!isLetter(front())) return {};
    return peekWhile([](char c) { return isLetter(c) || isDigit(c); });
}

String CharRange::found() const {
    constexpr std::size_t kExcerpt = 40;
    if (empty()) return "the end";
    const std::string_view text = rest();
    return fmt::format("\"{}\"{}", text.substr(0, kExcerpt), text.size() > kExcerpt ? "..." : "");
}

} // namespace Mox
