#include "Rsvp/RsvpSpId.h"

#include "Mox/Format.h"
#include "Mox/GenericIf.h"

#include <array>
#include <string_view>

namespace Rsvp {

namespace {

constexpr std::string_view kNone = "None";

} // namespace

Mox::String RsvpSpId::stringValue() const {
    Mox::String text = fmt::format("{} lsp={}", sessionId_.stringValue(), lspId_);
    if (const P2mpSubGroupId* subGroup = subGroupId()) {
        text += fmt::format(" subgroup={}", subGroup->stringValue());
    }
    return text;
}

Mox::String valueToStrep(const RsvpSpId& spId) {
    const P2mpSubGroupId* subGroup = spId.subGroupId();
    return Mox::_fmt("Value('Rsvp::RsvpSpId', ** {'sessionId': %s, 'lspId': %u, 'subGroupId': %s})",
                     valueToStrep(spId.sessionId()), spId.lspId(),
                     subGroup != nullptr ? valueToStrep(*subGroup) : Mox::String(kNone));
}

RsvpSpId sequenceToValue(Mox::CharRange& range, RsvpSpId* /*selector*/) {
    Mox::ValueReader reader(range, "Rsvp::RsvpSpId");
    const auto sessionId = reader.attr<RsvpSessionId>("sessionId");
    const auto lspId = reader.attr<std::uint32_t>("lspId");
    reader.needName("subGroupId");
    if (range.peekIdentifier() == kNone) {
        range.consume(kNone.size());
        reader.end();
        return RsvpSpId(sessionId, lspId);
    }
    const auto subGroupId = Mox::deserializeAttr<P2mpSubGroupId>(range, "subGroupId");
    reader.end();
    return RsvpSpId(sessionId, lspId, subGroupId);
}

namespace {

constexpr std::array kModuleTypes = {
    Mox::valueType<RsvpSpId, RsvpSpId>({"RsvpSpId", 0}, "Rsvp::RsvpSpId"),
};
constexpr Mox::ModuleDescriptor kModule = {"RsvpSpId", kModuleTypes};
const Mox::ModuleRegistration atLoad(kModule);

} // namespace

} // namespace Rsvp
