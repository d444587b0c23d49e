// The module RsvpHistory: its content for the registry, and its registration.

#include "Rsvp/RsvpHistoryTypes.h"

#include <array>

namespace Rsvp {

namespace {

constexpr std::array kSessionEntryTypes = {
    Mox::Enumerator{rsvpSessionUnknownEntry, "rsvpSessionUnknownEntry"},
    Mox::Enumerator{rsvpSessionCreationHistoryEntry, "rsvpSessionCreationHistoryEntry"},
    Mox::Enumerator{rsvpSessionMemberHistoryEntry, "rsvpSessionMemberHistoryEntry"},
};
constexpr std::array kSpEntryTypes = {
    Mox::Enumerator{rsvpSpUnknownEntry, "rsvpSpUnknownEntry"},
    Mox::Enumerator{rsvpSpOperStateHistoryEntry, "rsvpSpOperStateHistoryEntry"},
    Mox::Enumerator{rsvpSpFrrAvailableHistoryEntry, "rsvpSpFrrAvailableHistoryEntry"},
    Mox::Enumerator{rsvpSpDsFrrInUseHistoryEntry, "rsvpSpDsFrrInUseHistoryEntry"},
    Mox::Enumerator{rsvpSpUsFrrInUseHistoryEntry, "rsvpSpUsFrrInUseHistoryEntry"},
    Mox::Enumerator{rsvpSpErrorHistoryEntry, "rsvpSpErrorHistoryEntry"},
    Mox::Enumerator{rsvpSpBwStateHistoryEntry, "rsvpSpBwStateHistoryEntry"},
};
constexpr std::array kEnumerations = {
    Mox::EnumDescriptor{0, "Rsvp::RsvpSessionHistoryEntryType", sizeof(RsvpSessionHistoryEntryType),
                        kSessionEntryTypes},
    Mox::EnumDescriptor{1, "Rsvp::RsvpSpHistoryEntryType", sizeof(RsvpSpHistoryEntryType),
                        kSpEntryTypes},
};
constexpr Mox::ModuleDescriptor kModule = {"RsvpHistory", kEnumerations};

Mox::MoxTypeBase handle(std::uint32_t typeNumber) {
    static const Mox::ModuleRegistration once(kModule);
    return {kModule.name, typeNumber};
}

[[maybe_unused]] const Mox::MoxTypeBase atLoad = handle(0);

} // namespace

Mox::MoxTypeBase moxType(RsvpSessionHistoryEntryType) { return handle(0); }
Mox::MoxTypeBase moxType(RsvpSpHistoryEntryType) { return handle(1); }

} // namespace Rsvp
