#include "Rsvp/RsvpSessionHistoryEntry.h"

#include "Mox/Format.h"

namespace Rsvp {

RsvpSessionHistoryKey::RsvpSessionHistoryKey(Mox::CharRange& range) {
    Mox::ValueReader reader(range, "Rsvp::RsvpSessionHistoryKey");
    sessionId_ = reader.attr<RsvpSessionId>("sessionId");
    entryId_ = reader.attr<std::uint32_t>("entryId");
    reader.end();
}

RsvpSessionHistoryEntry::RsvpSessionHistoryEntry(Mox::CharRange& range) {
    Mox::ValueReader reader(range, "Rsvp::RsvpSessionHistoryEntry");
    key_ = reader.attr<RsvpSessionHistoryKey>("key");
    timestamp_ = reader.attr<Mox::Seconds>("timestamp");
    entryType_ = reader.attr<RsvpSessionHistoryEntryType>("entryType");
    spCliId_ = reader.attr<RsvpCliId>("spCliId");
    createdIs(reader.attr<bool>("created"));
    reader.end();
}

Mox::String RsvpSessionHistoryEntry::veskString() const {
    return Mox::streamed("[ ", key_.sessionId().stringValue(), ", ", key_.entryId(), " ] ",
                         timestamp_, "  ", entryType_);
}

Mox::String valueToStrep(const RsvpSessionHistoryKey& key) {
    return Mox::_fmt("Value('Rsvp::RsvpSessionHistoryKey', ** {'sessionId': %s, 'entryId': %u})",
                     valueToStrep(key.sessionId()), key.entryId());
}

Mox::String valueToStrep(const RsvpSessionHistoryEntry& entry) {
    return Mox::_fmt("Value('Rsvp::RsvpSessionHistoryEntry', ** {'key': %s, 'timestamp': %s, "
                     "'entryType': %s, 'spCliId': %s, 'created': %s})",
                     valueToStrep(entry.key()), valueToStrep(entry.timestamp()),
                     valueToStrep(entry.entryType()), valueToStrep(entry.spCliId()),
                     valueToStrep(entry.created()));
}

} // namespace Rsvp
