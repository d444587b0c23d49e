#pragma once

#include "Tables.h"
#include "Vesk/MapDescriptor.h"
#include "Vesk/VeskInterface.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Bench {

template <class Ops>
using Table = Vesk::VeskInterface<Ops>;

/// An initialised writer of a table below the root path's base.
template <class Ops>
std::unique_ptr<Table<Ops>> openTable(const std::string& name,
                                      const Vesk::MapDescriptor& descriptor);

/// A reader of a table that is there.
template <class Ops>
std::unique_ptr<Table<Ops>> openReader(const std::string& name);

/// The message counter without a notification queue, and again with one: a type of its own, so that
/// both are compiled at the same place.
struct LocalCounter : Rsvp::Vesk::MessageCounter {
    using MessageCounter::MessageCounter;
    const Rsvp::Vesk::MessageCounterKey& key() const { return MessageCounter::key(); }
};

template <bool Notifying>
struct LocalShape : TestSupport::MessageShape {
    using V = LocalCounter;
    using Ops = MoxVesk::TableOps<V, Key, Notifying>;

    static V value(std::uint32_t number, std::uint32_t generation) {
        return V(key(number), generation);
    }
};

} // namespace Bench
