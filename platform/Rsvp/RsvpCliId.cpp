#include "Rsvp/RsvpCliId.h"

#include "Mox/GenericIf.h"

#include <array>

namespace Rsvp {

RsvpCliId::RsvpCliId(Mox::CharRange& range)
    : value_(Mox::deserializeAttr<std::uint32_t>(range, "value")) {}

Mox::String valueToStrep(const RsvpCliId& cliId) { return valueToStrep(cliId.value()); }

namespace {

constexpr std::array kModuleTypes = {
    Mox::valueType<RsvpCliId, RsvpCliId>({"MplsRsvpTypes", 0}, "Rsvp::RsvpCliId"),
};
constexpr Mox::ModuleDescriptor kModule = {"MplsRsvpTypes", kModuleTypes};
const Mox::ModuleRegistration atLoad(kModule);

} // namespace

} // namespace Rsvp
