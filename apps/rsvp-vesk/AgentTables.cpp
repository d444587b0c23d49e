#include "AgentTables.h"

using Rsvp::Vesk::ErrorCounterColl;
using Rsvp::Vesk::MessageCounterColl;

namespace {

template <class Map, class Visit>
void forEach(const Map& map, Visit visit) {
    for (typename Map::IteratorConst each(&map); each.valid(); each.advance()) {
        visit(*each);
    }
}

} // namespace

AgentTables::AgentTables(bool fresh)
    : messages_(MessageCounterColl::MessageCounterCollIs("messageCounters"))
    , errors_(ErrorCounterColl::ErrorCounterCollIs("errorCounters")) {
    const auto adjust = [fresh](const std::string&, Vesk::MapDescriptor& descriptor) {
        descriptor.cleanupOnInit = fresh;
    };
    mounter_.mount(messages_, MessageCounterColl::mountPath, MessageCounterColl::writerMountInfo(),
                   Vesk::VeskType::writer, adjust);
    mounter_.mount(errors_, ErrorCounterColl::mountPath, ErrorCounterColl::writerMountInfo(),
                   Vesk::VeskType::writer, adjust);
}

AgentTables::~AgentTables() {
    mounter_.unmount(MessageCounterColl::mountPath);
    mounter_.unmount(ErrorCounterColl::mountPath);
}

void AgentTables::countMessage(const Wirra::IntfId& interface, Direction direction,
                               Wirra::AddressFamily family, Rsvp::RsvpMsgType type) {
    if (direction == Direction::rx) {
        messages_->incRxCount(interface, type, family);
    } else {
        messages_->incTxCount(interface, type, family);
    }
}

void AgentTables::countError(Direction direction, Rsvp::RsvpErrorType error) {
    if (direction == Direction::rx) {
        errors_->incRxCount(error);
    } else {
        errors_->incTxCount(error);
    }
}

std::vector<AgentTables::MessageRow> AgentTables::messages() const {
    std::vector<MessageRow> rows;
    const auto add = [&rows](const auto& map, Direction direction, Wirra::AddressFamily family) {
        forEach(map, [&](const Rsvp::Vesk::MessageCounter& counter) {
            rows.push_back({counter.key().intfId(), direction, family, counter.key().mType(),
                            counter.count()});
        });
    };
    add(messages_->rxIpv4CountMap(), Direction::rx, Wirra::ipv4AddressFamily);
    add(messages_->rxIpv6CountMap(), Direction::rx, Wirra::ipv6AddressFamily);
    add(messages_->txIpv4CountMap(), Direction::tx, Wirra::ipv4AddressFamily);
    add(messages_->txIpv6CountMap(), Direction::tx, Wirra::ipv6AddressFamily);
    return rows;
}

std::vector<AgentTables::ErrorRow> AgentTables::errors() const {
    std::vector<ErrorRow> rows;
    const auto add = [&rows](const auto& map, Direction direction) {
        forEach(map, [&](const Rsvp::Vesk::ErrorCounter& counter) {
            rows.push_back({direction, counter.key().errorType(), counter.count()});
        });
    };
    add(errors_->rxErrorCountMap(), Direction::rx);
    add(errors_->txErrorCountMap(), Direction::tx);
    return rows;
}

std::vector<std::string> AgentTables::folders() const {
    std::vector<std::string> folders;
    const auto add = [&folders](const MoxVesk::MountInfo& info, MoxVesk::Entity& collection) {
        for (const auto& table : info.collections()) {
            folders.push_back(collection.tableControl(table.name)->rootPath().path());
        }
    };
    add(MessageCounterColl::writerMountInfo(), *messages_);
    add(ErrorCounterColl::writerMountInfo(), *errors_);
    return folders;
}
