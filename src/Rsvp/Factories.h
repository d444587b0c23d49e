#pragma once

#include "Mox/Ptr.h"
#include "Pello/String.h"

// Collections by name, each with its notifications on.

namespace Rsvp {

class RsvpSessionHistory;
class RsvpSpHistory;

Mox::Ptr<RsvpSessionHistory> rsvpSessionHistoryFactory(const Pello::String& name);
Mox::Ptr<RsvpSpHistory> rsvpSpHistoryFactory(const Pello::String& name);

namespace Vesk {

class MessageCounterColl;
class ErrorCounterColl;

Mox::Ptr<MessageCounterColl> messageCounterCollFactory(const Pello::String& name);
Mox::Ptr<ErrorCounterColl> errorCounterCollFactory(const Pello::String& name);

} // namespace Vesk
} // namespace Rsvp
