#include "Rsvp/MessageCounter.h"

#include "Mox/Format.h"

namespace Rsvp::Vesk {

MessageCounterKey::MessageCounterKey(Mox::CharRange& range) {
    Mox::ValueReader reader(range, "Rsvp::Vesk::MessageCounterKey");
    intfId_ = reader.attr<Wirra::IntfId>("intfId");
    mType_ = reader.attr<RsvpMsgType>("mType");
    reader.end();
}

MessageCounter::MessageCounter(Mox::CharRange& range) {
    Mox::ValueReader reader(range, "Rsvp::Vesk::MessageCounter");
    key_ = reader.attr<MessageCounterKey>("key");
    count_ = reader.attr<std::uint32_t>("count");
    reader.end();
}

Mox::String MessageCounter::veskString() const {
    return Mox::streamed('[', key_.intfId(), ',', key_.mType(), ']', count_);
}

Mox::String valueToStrep(const MessageCounterKey& key) {
    return Mox::_fmt("Value('Rsvp::Vesk::MessageCounterKey', ** {'intfId': %s, 'mType': %s})",
                     valueToStrep(key.intfId()), valueToStrep(key.mType()));
}

Mox::String valueToStrep(const MessageCounter& counter) {
    return Mox::_fmt("Value('Rsvp::Vesk::MessageCounter', ** {'key': %s, 'count': %u})",
                     valueToStrep(counter.key()), counter.count());
}

} // namespace Rsvp::Vesk
