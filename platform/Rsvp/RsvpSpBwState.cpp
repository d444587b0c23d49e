#include "Rsvp/RsvpSpBwState.h"

#include "Mox/Format.h"
#include "Mox/GenericIf.h"

#include <array>

namespace Rsvp {

namespace {

constexpr std::array kAdmissions = {
    Mox::Enumerator{rsvpSpUnknownBwAdmission, "rsvpSpUnknownBwAdmission"},
    Mox::Enumerator{rsvpSpPendingBwAdmission, "rsvpSpPendingBwAdmission"},
    Mox::Enumerator{rsvpSpAdmittedBwAdmission, "rsvpSpAdmittedBwAdmission"},
    Mox::Enumerator{rsvpSpRejectedBwAdmission, "rsvpSpRejectedBwAdmission"},
};
constexpr std::array kModuleTypes = {
    Mox::enumType<RsvpSpBwAdmission>({"RsvpBwState", 0}, "Rsvp::RsvpSpBwAdmission", kAdmissions),
    Mox::valueType<RsvpSpBwState, RsvpSpBwState>({"RsvpBwState", 1}, "Rsvp::RsvpSpBwState"),
};
constexpr Mox::ModuleDescriptor kModule = {"RsvpBwState", kModuleTypes};

[[maybe_unused]] const Mox::MoxTypeBase atLoad = moxType(RsvpSpBwAdmission{});

} // namespace

Mox::MoxTypeBase moxType(RsvpSpBwAdmission) {
    static const Mox::ModuleRegistration once(kModule);
    return {kModule.name, 0};
}

RsvpSpBwState::RsvpSpBwState(Mox::CharRange& range) {
    Mox::ValueReader reader(range, "Rsvp::RsvpSpBwState");
    admission_ = reader.attr<RsvpSpBwAdmission>("admission");
    error_ = reader.attr<RsvpError>("error");
    bandwidth_ = reader.attr<std::uint64_t>("bandwidth");
    intfId_ = reader.attr<Wirra::IntfId>("intfId");
    reader.end();
}

Mox::String valueToStrep(const RsvpSpBwState& bwState) {
    return Mox::_fmt("Value('Rsvp::RsvpSpBwState', ** {'admission': %s, 'error': %s, "
                     "'bandwidth': %u, 'intfId': %s})",
                     valueToStrep(bwState.admission()), valueToStrep(bwState.error()),
                     bwState.bandwidth(), valueToStrep(bwState.intfId()));
}

} // namespace Rsvp
