#include "Rsvp/P2mpSubGroupId.h"

#include "Mox/Format.h"

namespace Rsvp {

P2mpSubGroupId::P2mpSubGroupId(Mox::CharRange& range) {
    Mox::ValueReader reader(range, "Rsvp::P2mpSubGroupId");
    originator_ = reader.attr<Wirra::IpGenAddr>("originator");
    subGroup_ = reader.attr<std::uint16_t>("subGroup");
    reader.end();
}

Mox::String P2mpSubGroupId::stringValue() const {
    return fmt::format("{}/{}", originator_, subGroup_);
}

Mox::String valueToStrep(const P2mpSubGroupId& subGroupId) {
    return Mox::_fmt("Value('Rsvp::P2mpSubGroupId', ** {'originator': %s, 'subGroup': %u})",
                     valueToStrep(subGroupId.originator()), subGroupId.subGroup());
}

} // namespace Rsvp
