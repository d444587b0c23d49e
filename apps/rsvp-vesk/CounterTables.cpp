#include "CounterTables.h"

using Rsvp::Vesk::ErrorCounterColl;
using Rsvp::Vesk::MessageCounterColl;

namespace {

template <class Map, class Visit>
void forEach(const Map& map, Visit visit) {
    for (typename Map::IteratorConst each(&map); each.valid(); each.advance()) {
        visit(*each);
    }
}

std::vector<Vesk::VeskMapBase*> frontsOf(const MoxVesk::MountInfo& info,
                                         MoxVesk::Entity& collection) {
    std::vector<Vesk::VeskMapBase*> fronts;
    for (const auto& table : info.collections()) {
        fronts.push_back(&dynamic_cast<Vesk::VeskMapBase&>(*collection.tableControl(table.name)));
    }
    return fronts;
}

} // namespace

CounterTables::CounterTables(Which which, Vesk::VeskType mode, bool fresh)
    : messagePath_(which == Which::current ? MessageCounterColl::mountPath
                                           : MessageCounterColl::snapshotMountPath)
    , errorPath_(which == Which::current ? ErrorCounterColl::mountPath
                                         : ErrorCounterColl::snapshotMountPath)
    , messages_(MessageCounterColl::MessageCounterCollIs("messageCounters"))
    , errors_(ErrorCounterColl::ErrorCounterCollIs("errorCounters")) {
    const auto adjust = [fresh](const std::string&, Vesk::MapDescriptor& descriptor) {
        descriptor.cleanupOnInit = fresh;
        descriptor.shrinkSlots = true;
        descriptor.shrinkBuckets = true;
    };
    mounter_.mount(messages_, messagePath_, MessageCounterColl::writerMountInfo(), mode, adjust);
    mounter_.mount(errors_, errorPath_, ErrorCounterColl::writerMountInfo(), mode, adjust);
}

CounterTables::~CounterTables() {
    mounter_.unmount(messagePath_);
    mounter_.unmount(errorPath_);
}

void CounterTables::countMessage(const Wirra::IntfId& interface, Direction direction,
                                 Wirra::AddressFamily family, Rsvp::RsvpMsgType type) {
    if (direction == Direction::rx) {
        messages_->incRxCount(interface, type, family);
    } else {
        messages_->incTxCount(interface, type, family);
    }
}

void CounterTables::countError(Direction direction, Rsvp::RsvpErrorType error) {
    if (direction == Direction::rx) {
        errors_->incRxCount(error);
    } else {
        errors_->incTxCount(error);
    }
}

void CounterTables::copyFrom(const CounterTables& original) {
    messages_->snapshotFrom(original.messages_);
    errors_->snapshotFrom(original.errors_);
}

std::vector<CounterTables::MessageRow> CounterTables::messages(const CounterTables* since) const {
    std::vector<MessageRow> rows;
    const MessageCounterColl::Snapshot snapshot = since != nullptr ? since->messages_ : nullptr;
    const auto add = [&](const auto& map, Direction direction, Wirra::AddressFamily family,
                         auto relative) {
        forEach(map, [&](const Rsvp::Vesk::MessageCounter& counter) {
            const auto key = counter.key();
            rows.push_back({key.intfId(), direction, family, key.mType(),
                            snapshot ? ((*messages_).*relative)(key, snapshot) : counter.count()});
        });
    };
    add(messages_->rxIpv4CountMap(), Direction::rx, Wirra::ipv4AddressFamily,
        &MessageCounterColl::rxIpv4RelativeCount);
    add(messages_->rxIpv6CountMap(), Direction::rx, Wirra::ipv6AddressFamily,
        &MessageCounterColl::rxIpv6RelativeCount);
    add(messages_->txIpv4CountMap(), Direction::tx, Wirra::ipv4AddressFamily,
        &MessageCounterColl::txIpv4RelativeCount);
    add(messages_->txIpv6CountMap(), Direction::tx, Wirra::ipv6AddressFamily,
        &MessageCounterColl::txIpv6RelativeCount);
    return rows;
}

std::vector<CounterTables::ErrorRow> CounterTables::errors(const CounterTables* since) const {
    std::vector<ErrorRow> rows;
    const ErrorCounterColl::Snapshot snapshot = since != nullptr ? since->errors_ : nullptr;
    const auto add = [&](const auto& map, Direction direction, auto relative) {
        forEach(map, [&](const Rsvp::Vesk::ErrorCounter& counter) {
            rows.push_back(
                {direction, counter.key().errorType(),
                 snapshot ? ((*errors_).*relative)(counter.key(), snapshot) : counter.count()});
        });
    };
    add(errors_->rxErrorCountMap(), Direction::rx, &ErrorCounterColl::rxErrorRelativeCount);
    add(errors_->txErrorCountMap(), Direction::tx, &ErrorCounterColl::txErrorRelativeCount);
    return rows;
}

std::vector<Vesk::VeskMapBase*> CounterTables::messageFronts() const {
    return frontsOf(MessageCounterColl::writerMountInfo(), *messages_);
}

std::vector<Vesk::VeskMapBase*> CounterTables::errorFronts() const {
    return frontsOf(ErrorCounterColl::writerMountInfo(), *errors_);
}
