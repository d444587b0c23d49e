#include "Rsvp/CounterTables.h"

template class Vesk::VeskWriter<Rsvp::Vesk::MessageCounterOps>;
template class Vesk::VeskWriter<Rsvp::Vesk::ErrorCounterOps>;
