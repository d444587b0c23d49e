#include "Wirra/IntfId.h"

#include "Mox/GenericIf.h"

#include <array>

#include <charconv>
#include <string_view>
#include <system_error>

namespace Wirra {

Mox::String valueToStrep(const IntfId& intfId) { return fmt::format("Intf({:#x})", intfId.raw()); }

IntfId sequenceToValue(Mox::CharRange& range, IntfId* /*selector*/) {
    range.needString("Intf(0x");
    const std::string_view digits =
        range.peekWhile([](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
    std::uint64_t raw = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), raw, 16);
    if (error != std::errc{} || (digits.size() > 1 && digits.front() == '0')) {
        Pello::raise<Mox::RangeException>({"IntfId", "Wirra/IntfId", "sequenceToValue"},
                                          "wanted up to 16 hexadecimal digits at offset {}, "
                                          "found {}",
                                          range.consumed(), range.found());
    }
    range.consume(digits.size());
    range.needString(")");
    return IntfId(raw);
}

namespace {

constexpr std::array kModuleTypes = {
    Mox::valueType<IntfId, IntfId>({"IntfId", 0}, "Wirra::IntfId"),
};
constexpr Mox::ModuleDescriptor kModule = {"IntfId", kModuleTypes};
const Mox::ModuleRegistration atLoad(kModule);

} // namespace

} // namespace Wirra
