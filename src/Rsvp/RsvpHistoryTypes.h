#pragma once

#include "Mox/Strep.h"

#include <cstdint>

namespace Rsvp {

/// What an entry of the session history records.
enum RsvpSessionHistoryEntryType : std::uint32_t {
    rsvpSessionUnknownEntry = 0,
    rsvpSessionCreationHistoryEntry = 1,
    rsvpSessionMemberHistoryEntry = 2,
};

/// What an entry of the state-path history records.
enum RsvpSpHistoryEntryType : std::uint32_t {
    rsvpSpUnknownEntry = 0,
    rsvpSpOperStateHistoryEntry = 1,
    rsvpSpFrrAvailableHistoryEntry = 2,
    rsvpSpDsFrrInUseHistoryEntry = 3,
    rsvpSpUsFrrInUseHistoryEntry = 4,
    rsvpSpErrorHistoryEntry = 5,
    rsvpSpBwStateHistoryEntry = 6,
};

/// Registered as type 0 of the module RsvpHistory.
Mox::MoxTypeBase moxType(RsvpSessionHistoryEntryType);
/// Registered as type 1 of the module RsvpHistory.
Mox::MoxTypeBase moxType(RsvpSpHistoryEntryType);

inline RsvpSessionHistoryEntryType RsvpSessionHistoryEntryTypeInstance(unsigned int value) {
    return Mox::enumInstance<RsvpSessionHistoryEntryType>(value);
}
inline RsvpSessionHistoryEntryType RsvpSessionHistoryEntryTypeInstance(const Pello::String& name) {
    return Mox::enumInstance<RsvpSessionHistoryEntryType>(name);
}

inline RsvpSpHistoryEntryType RsvpSpHistoryEntryTypeInstance(unsigned int value) {
    return Mox::enumInstance<RsvpSpHistoryEntryType>(value);
}
inline RsvpSpHistoryEntryType RsvpSpHistoryEntryTypeInstance(const Pello::String& name) {
    return Mox::enumInstance<RsvpSpHistoryEntryType>(name);
}

using Mox::operator<<;
using Mox::sequenceToValue;
using Mox::stringValue;
using Mox::valueToStrep;

} // namespace Rsvp
