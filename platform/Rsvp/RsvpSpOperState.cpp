#include "Rsvp/RsvpSpOperState.h"

#include "Mox/GenericIf.h"

#include <array>

namespace Rsvp {

namespace {

constexpr std::array kStates = {
    Mox::Enumerator{rsvpSpUnknownOperState, "rsvpSpUnknownOperState"},
    Mox::Enumerator{rsvpSpUpOperState, "rsvpSpUpOperState"},
    Mox::Enumerator{rsvpSpDownOperState, "rsvpSpDownOperState"},
};
constexpr std::array kModuleTypes = {
    Mox::enumType<RsvpSpOperState>({"RsvpSpOperState", 0}, "Rsvp::RsvpSpOperState", kStates),
};
constexpr Mox::ModuleDescriptor kModule = {"RsvpSpOperState", kModuleTypes};

[[maybe_unused]] const Mox::MoxTypeBase atLoad = moxType(RsvpSpOperState{});

} // namespace

Mox::MoxTypeBase moxType(RsvpSpOperState) {
    static const Mox::ModuleRegistration once(kModule);
    return {kModule.name, 0};
}

} // namespace Rsvp
