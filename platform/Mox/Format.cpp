#include "Mox/Format.h"

#include <fmt/format.h>

#include <iterator>

namespace Mox::FormatDetail {

String fill(std::string_view format, std::span<const Argument> arguments) {
    std::size_t size = format.size();
    for (const Argument& argument : arguments) {
        size += argument.text.size();
    }
    String filled;
    filled.reserve(size);
    for (const Argument& argument : arguments) {
        const std::size_t placeholder = format.find('%');
        filled += format.substr(0, placeholder);
        format.remove_prefix(placeholder + 2);
        if (argument.isNumber) {
            fmt::format_to(std::back_inserter(filled), "{}", argument.number);
        } else {
            filled += argument.text;
        }
    }
    filled += format;
    return filled;
}

} // namespace Mox::FormatDetail
