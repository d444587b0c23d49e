#include "Mox/EnumType.h"

#include "Mox/Strep.h"
#include "Pello/Debug.h"

#include <fmt/format.h>

#include <limits>

namespace Mox {

namespace {

template <class Number>
const TypeDescriptor& descriptorOf(const MoxTypeBase& type) {
    const TypeDescriptor* descriptor = typeDescriptor(type);
    if (descriptor == nullptr || descriptor->kind != TypeKind::enumeration) {
        Pello::fatal(nullptr, {"EnumType", "Mox/EnumType", "descriptorOf"},
                     "no enumeration is registered as type {} of module {}", type.typeNumber,
                     type.module);
    }
    if (descriptor->bytes != sizeof(Number)) {
        Pello::fatal(nullptr, {"EnumType", "Mox/EnumType", "descriptorOf"},
                     "{} is registered with {} bytes, used with {}", descriptor->name,
                     descriptor->bytes, sizeof(Number));
    }
    return *descriptor;
}

String nameOf(const TypeDescriptor& descriptor, std::uint32_t number) {
    for (const Enumerator& enumerator : descriptor.enumerators) {
        if (enumerator.number == number) return String(enumerator.name);
    }
    return fmt::format("{}", number);
}

const Enumerator* find(const TypeDescriptor& descriptor, std::string_view name) {
    for (const Enumerator& enumerator : descriptor.enumerators) {
        if (enumerator.name == name) return &enumerator;
    }
    return nullptr;
}

} // namespace

template <class Number>
Number EnumType<Number>::instance(std::uint32_t number, const MoxTypeBase& type) {
    if (number > std::numeric_limits<Number>::max()) {
        Pello::raise<RangeException>(
            {"EnumType", "Mox/EnumType", "instance"}, "wanted a number of {} up to {}, found {}",
            descriptorOf<Number>(type).name, std::numeric_limits<Number>::max(), number);
    }
    return static_cast<Number>(number);
}

template <class Number>
Number EnumType<Number>::instance(const String& name, const MoxTypeBase& type) {
    const TypeDescriptor& descriptor = descriptorOf<Number>(type);
    const Enumerator* enumerator = find(descriptor, name);
    if (enumerator == nullptr) {
        Pello::raise<RangeException>({"EnumType", "Mox/EnumType", "instance"},
                                     "wanted a name of {}, found \"{}\"", descriptor.name, name);
    }
    return static_cast<Number>(enumerator->number);
}

template <class Number>
std::ostream& EnumType<Number>::operatorLessLess(std::ostream& stream, Number value,
                                                 const MoxTypeBase& type) {
    return stream << stringValue(value, type);
}

template <class Number>
String EnumType<Number>::valueToStrep(Number value, const MoxTypeBase& type) {
    return stringValue(value, type);
}

template <class Number>
Number EnumType<Number>::sequenceToValue(CharRange& range, const MoxTypeBase& type) {
    const TypeDescriptor& descriptor = descriptorOf<Number>(type);
    if (range.front() >= '0' && range.front() <= '9') return readValue<Number>(range);
    const std::string_view name = range.peekIdentifier();
    const Enumerator* enumerator = find(descriptor, name);
    if (enumerator == nullptr) {
        Pello::raise<RangeException>({"EnumType", "Mox/EnumType", "sequenceToValue"},
                                     "wanted a name or number of {} at offset {}, found {}",
                                     descriptor.name, range.consumed(), range.found());
    }
    range.consume(name.size());
    return static_cast<Number>(enumerator->number);
}

template <class Number>
String EnumType<Number>::stringValue(Number value, const MoxTypeBase& type) {
    return nameOf(descriptorOf<Number>(type), value);
}

template struct EnumType<unsigned char>;
template struct EnumType<unsigned int>;

} // namespace Mox
