#include "Rsvp/RsvpCliId.h"

namespace Rsvp {

RsvpCliId::RsvpCliId(Mox::CharRange& range)
    : value_(Mox::deserializeAttr<std::uint32_t>(range, "value")) {}

Mox::String valueToStrep(const RsvpCliId& cliId) { return valueToStrep(cliId.value()); }

} // namespace Rsvp
