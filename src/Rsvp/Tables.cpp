#include "Rsvp/Tables.h"

template class Vesk::VeskWriter<Rsvp::Vesk::MessageCounterOps>;
template class Vesk::VeskWriter<Rsvp::Vesk::ErrorCounterOps>;
template class Vesk::VeskWriter<Rsvp::RsvpSessionHistoryOps>;
template class Vesk::VeskWriter<Rsvp::RsvpSpHistoryOps>;
