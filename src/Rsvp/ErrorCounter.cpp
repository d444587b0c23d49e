#include "Rsvp/ErrorCounter.h"

#include "Mox/Format.h"

namespace Rsvp::Vesk {

ErrorCounterKey::ErrorCounterKey(Mox::CharRange& range)
    : errorType_(Mox::deserializeAttr<RsvpErrorType>(range, "errorType")) {}

ErrorCounter::ErrorCounter(Mox::CharRange& range) {
    Mox::ValueReader reader(range, "Rsvp::Vesk::ErrorCounter");
    key_ = reader.attr<ErrorCounterKey>("key");
    count_ = reader.attr<std::uint32_t>("count");
    reader.end();
}

Mox::String ErrorCounter::veskString() const {
    return Mox::streamed('[', key_.errorType(), ']', count_);
}

Mox::String valueToStrep(const ErrorCounterKey& key) { return valueToStrep(key.errorType()); }

Mox::String valueToStrep(const ErrorCounter& counter) {
    return Mox::_fmt("Value('Rsvp::Vesk::ErrorCounter', ** {'key': %s, 'count': %u})",
                     valueToStrep(counter.key()), counter.count());
}

} // namespace Rsvp::Vesk
