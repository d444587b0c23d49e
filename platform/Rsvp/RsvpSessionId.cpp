#include "Rsvp/RsvpSessionId.h"

#include "Mox/Format.h"
#include "Mox/GenericIf.h"

#include <array>

namespace Rsvp {

Mox::String RsvpSessionId::stringValue() const {
    return fmt::format("type={} dst={} tunnel={} ext={}", sessionType_, destination_, tunnelId_,
                       extendedTunnelId_);
}

Mox::String valueToStrep(const RsvpSessionId& sessionId) {
    return Mox::_fmt("Value('Rsvp::RsvpSessionId', ** {'sessionType': %u, 'destination': %s, "
                     "'tunnelId': %u, 'extendedTunnelId': %s})",
                     sessionId.sessionType(), valueToStrep(sessionId.destination()),
                     sessionId.tunnelId(), valueToStrep(sessionId.extendedTunnelId()));
}

RsvpSessionId sequenceToValue(Mox::CharRange& range, RsvpSessionId* /*selector*/) {
    Mox::ValueReader reader(range, "Rsvp::RsvpSessionId");
    const auto sessionType = reader.attr<std::uint8_t>("sessionType");
    const auto destination = reader.attr<Wirra::IpGenAddr>("destination");
    const auto tunnelId = reader.attr<std::uint16_t>("tunnelId");
    const auto extendedTunnelId = reader.attr<Wirra::IpGenAddr>("extendedTunnelId");
    reader.end();
    return RsvpSessionId(sessionType, destination, tunnelId, extendedTunnelId);
}

namespace {

constexpr std::array kModuleTypes = {
    Mox::valueType<RsvpSessionId, RsvpSessionId>({"RsvpSessionId", 2}, "Rsvp::RsvpSessionId"),
};
constexpr Mox::ModuleDescriptor kModule = {"RsvpSessionId", kModuleTypes};
const Mox::ModuleRegistration atLoad(kModule);

} // namespace

} // namespace Rsvp
