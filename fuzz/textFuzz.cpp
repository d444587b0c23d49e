// Any text as the text form of each registered type: it is read or refused, and what was read has a
// text that gives the same again.

#include "Texts.h"

#include "Mox/CharRange.h"

#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const auto& types = Fuzz::readableTypes();
    const Mox::TypeDescriptor& type = *types[data[0] % types.size()];
    Mox::AnyValue value(type);
    try {
        value.textIs(std::string(reinterpret_cast<const char*>(data + 1), size - 1));
    } catch (const Mox::RangeException&) {
        return 0; // what is no text of the type deserves
    }
    const std::string text = value.text();
    Mox::AnyValue again(type);
    again.textIs(text);
    if (again.text() != text) std::abort();
    return 0;
}
