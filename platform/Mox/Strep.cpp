#include "Mox/Strep.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace Mox {

String valueToStrep(const Seconds& value) {
    // fmt prints the sign of a NaN, which no reader needs.
    return std::isnan(value.value()) ? "nan" : fmt::format("{}", value.value());
}

namespace StrepDetail {

std::uint64_t readUnsigned(CharRange& range, std::uint64_t maximum) {
    const std::string_view digits = range.peekWhile([](char c) { return c >= '0' && c <= '9'; });
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    const bool isPadded = digits.size() > 1 && digits.front() == '0';
    if (error != std::errc{} || isPadded || value > maximum) {
        Pello::raise<RangeException>({"Strep", "Mox/Strep", "readUnsigned"},
                                     "wanted a decimal number up to {} at offset {}, found {}",
                                     maximum, range.consumed(), range.found());
    }
    range.consume(digits.size());
    return value;
}

bool readBool(CharRange& range) {
    const std::string_view word = range.peekIdentifier();
    const bool value = word == "True";
    if (!value && word != "False") {
        Pello::raise<RangeException>({"Strep", "Mox/Strep", "readBool"},
                                     "wanted True or False at offset {}, found {}",
                                     range.consumed(), range.found());
    }
    range.consume(word.size());
    return value;
}

Seconds readSeconds(CharRange& range) {
    // The words are those that valueToStrep writes; from_chars knows more, such as "nan(1)".
    const bool isNegative = range.front() == '-';
    const std::string_view number = range.peekWhile([](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || c == '.' || c == '+' || c == '-';
    });
    const std::string_view magnitude = number.substr(isNegative ? 1 : 0);
    double value = std::numeric_limits<double>::quiet_NaN();
    bool isRead = number == "nan";
    if (magnitude == "inf") {
        value = std::numeric_limits<double>::infinity() * (isNegative ? -1 : 1);
        isRead = true;
    } else if (!magnitude.empty() && magnitude.front() >= '0' && magnitude.front() <= '9') {
        const char* const last = number.data() + number.size();
        const auto [end, error] = std::from_chars(number.data(), last, value);
        isRead = error == std::errc{} && end == last;
    }
    if (!isRead) {
        Pello::raise<RangeException>({"Strep", "Mox/Strep", "readSeconds"},
                                     "wanted a number of seconds at offset {}, found {}",
                                     range.consumed(), range.found());
    }
    range.consume(number.size());
    return Seconds(value);
}

} // namespace StrepDetail

ValueReader::ValueReader(CharRange& range, std::string_view typeName)
    : range_(range) {
    range_.needString(fmt::format("Value('{}', ** {{", typeName));
}

void ValueReader::needName(const char* name) {
    range_.needString(fmt::format("{}'{}': ", isFirst_ ? "" : ", ", name));
    isFirst_ = false;
}

void ValueReader::end() { range_.needString("})"); }

} // namespace Mox
