#include "Rsvp/RsvpSpHistoryEntry.h"

#include "Mox/Format.h"

namespace Rsvp {

RsvpSpHistoryKey::RsvpSpHistoryKey(Mox::CharRange& range) {
    Mox::ValueReader reader(range, "Rsvp::RsvpSpHistoryKey");
    spId_ = reader.attr<RsvpSpId>("spId");
    entryId_ = reader.attr<std::uint32_t>("entryId");
    reader.end();
}

RsvpSpHistoryEntry::RsvpSpHistoryEntry(Mox::CharRange& range) {
    Mox::ValueReader reader(range, "Rsvp::RsvpSpHistoryEntry");
    key_ = reader.attr<RsvpSpHistoryKey>("key");
    timestamp_ = reader.attr<Mox::Seconds>("timestamp");
    entryType_ = reader.attr<RsvpSpHistoryEntryType>("entryType");
    spOperPathStateIs(reader.attr<RsvpSpOperState>("spOperPathState"));
    spOperResvStateIs(reader.attr<RsvpSpOperState>("spOperResvState"));
    bypassAvailableIs(reader.attr<bool>("bypassAvailable"));
    bypassNextHopIs(reader.attr<Wirra::IpGenAddr>("bypassNextHop"));
    bypassNodeProtectedIs(reader.attr<bool>("bypassNodeProtected"));
    dsFrrInUseIs(reader.attr<bool>("dsFrrInUse"));
    dsNextHopIs(reader.attr<Wirra::IpGenAddr>("dsNextHop"));
    dsNodeProtectedIs(reader.attr<bool>("dsNodeProtected"));
    usFrrInUseIs(reader.attr<bool>("usFrrInUse"));
    errorIs(reader.attr<RsvpError>("error"));
    bwStateIs(reader.attr<RsvpSpBwState>("bwState"));
    reader.end();
}

Mox::String RsvpSpHistoryEntry::veskString() const {
    return Mox::streamed("[ ", key_.spId().stringValue(), ", ", key_.entryId(), " ] ", timestamp_,
                         "  ", entryType_);
}

Mox::String valueToStrep(const RsvpSpHistoryKey& key) {
    return Mox::_fmt("Value('Rsvp::RsvpSpHistoryKey', ** {'spId': %s, 'entryId': %u})",
                     valueToStrep(key.spId()), key.entryId());
}

Mox::String valueToStrep(const RsvpSpHistoryEntry& entry) {
    return Mox::_fmt(
        "Value('Rsvp::RsvpSpHistoryEntry', ** {'key': %s, 'timestamp': %s, 'entryType': %s, "
        "'spOperPathState': %s, 'spOperResvState': %s, 'bypassAvailable': %s, 'bypassNextHop': %s, "
        "'bypassNodeProtected': %s, 'dsFrrInUse': %s, 'dsNextHop': %s, 'dsNodeProtected': %s, "
        "'usFrrInUse': %s, 'error': %s, 'bwState': %s})",
        valueToStrep(entry.key()), valueToStrep(entry.timestamp()), valueToStrep(entry.entryType()),
        valueToStrep(entry.spOperPathState()), valueToStrep(entry.spOperResvState()),
        valueToStrep(entry.bypassAvailable()), valueToStrep(entry.bypassNextHop()),
        valueToStrep(entry.bypassNodeProtected()), valueToStrep(entry.dsFrrInUse()),
        valueToStrep(entry.dsNextHop()), valueToStrep(entry.dsNodeProtected()),
        valueToStrep(entry.usFrrInUse()), valueToStrep(entry.error()),
        valueToStrep(entry.bwState()));
}

} // namespace Rsvp
