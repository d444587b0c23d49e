#pragma once

#include "MoxVesk/ValWrap.h"
#include "Rsvp/ErrorCounter.h"
#include "Rsvp/MessageCounter.h"
#include "Rsvp/RsvpSessionHistoryEntry.h"
#include "Rsvp/RsvpSpHistoryEntry.h"
#include "Vesk/VeskWriter.h"

namespace Rsvp::Vesk {

/// Message counters have a notification queue, so that shadows can follow them.
using MessageCounterOps = MoxVesk::TableOps<MessageCounter, MessageCounterKey, true>;
using ErrorCounterOps = MoxVesk::TableOps<ErrorCounter, ErrorCounterKey, false>;

using MessageCounterWriter = ::Vesk::VeskWriter<MessageCounterOps>;
using ErrorCounterWriter = ::Vesk::VeskWriter<ErrorCounterOps>;

} // namespace Rsvp::Vesk

namespace Rsvp {

using RsvpSessionHistoryOps =
    MoxVesk::TableOps<RsvpSessionHistoryEntry, RsvpSessionHistoryKey, false>;
using RsvpSpHistoryOps = MoxVesk::TableOps<RsvpSpHistoryEntry, RsvpSpHistoryKey, false>;

} // namespace Rsvp

extern template class Vesk::VeskWriter<Rsvp::Vesk::MessageCounterOps>;
extern template class Vesk::VeskWriter<Rsvp::Vesk::ErrorCounterOps>;
extern template class Vesk::VeskWriter<Rsvp::RsvpSessionHistoryOps>;
extern template class Vesk::VeskWriter<Rsvp::RsvpSpHistoryOps>;
