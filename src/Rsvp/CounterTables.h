#pragma once

#include "MoxVesk/ValWrap.h"
#include "Rsvp/ErrorCounter.h"
#include "Rsvp/MessageCounter.h"
#include "Vesk/VeskWriter.h"

namespace Rsvp::Vesk {

/// Message counters have a notification queue, so that shadows can follow them.
using MessageCounterOps = MoxVesk::TableOps<MessageCounter, MessageCounterKey, true>;
using ErrorCounterOps = MoxVesk::TableOps<ErrorCounter, ErrorCounterKey, false>;

using MessageCounterWriter = ::Vesk::VeskWriter<MessageCounterOps>;
using ErrorCounterWriter = ::Vesk::VeskWriter<ErrorCounterOps>;

} // namespace Rsvp::Vesk

extern template class Vesk::VeskWriter<Rsvp::Vesk::MessageCounterOps>;
extern template class Vesk::VeskWriter<Rsvp::Vesk::ErrorCounterOps>;
