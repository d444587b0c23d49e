#include "Rsvp/RsvpError.h"

#include "Mox/Format.h"
#include "Mox/GenericIf.h"

#include <array>

namespace Rsvp {

RsvpError::RsvpError(Mox::CharRange& range) {
    Mox::ValueReader reader(range, "Rsvp::RsvpError");
    errorCode_ = reader.attr<std::uint32_t>("errorCode");
    errorValue_ = reader.attr<std::uint16_t>("errorValue");
    reader.end();
}

Mox::String valueToStrep(const RsvpError& error) {
    return Mox::_fmt("Value('Rsvp::RsvpError', ** {'errorCode': %u, 'errorValue': %u})",
                     error.errorCode(), error.errorValue());
}

namespace {

constexpr std::array kModuleTypes = {
    Mox::valueType<RsvpError, RsvpError>({"RsvpError", 6}, "Rsvp::RsvpError"),
};
constexpr Mox::ModuleDescriptor kModule = {"RsvpError", kModuleTypes};
const Mox::ModuleRegistration atLoad(kModule);

} // namespace

} // namespace Rsvp
