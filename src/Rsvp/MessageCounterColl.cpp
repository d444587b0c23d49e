#include "Rsvp/MessageCounterColl.h"

namespace Rsvp::Vesk {

MessageCounterColl::MessageCounterColl(const Pello::String& name)
    : Collection(name) {
    bindTables();
}

const MessageCounterColl::Table& MessageCounterColl::rxTable(Wirra::AddressFamily af) const {
    return af == Wirra::ipv4AddressFamily ? rxIpv4Count_ : rxIpv6Count_;
}

const MessageCounterColl::Table& MessageCounterColl::txTable(Wirra::AddressFamily af) const {
    return af == Wirra::ipv4AddressFamily ? txIpv4Count_ : txIpv6Count_;
}

MessageCounter MessageCounterColl::read(const Table& table, Wirra::IntfId intfId,
                                        RsvpMsgType mType) {
    const MessageCounterKey key(intfId, mType);
    const MessageCounter stored = table.get(key);
    return stored ? stored : MessageCounter(key, 0);
}

MessageCounter MessageCounterColl::rxAfCount(Wirra::IntfId intfId, RsvpMsgType mType,
                                             Wirra::AddressFamily af) const {
    return read(rxTable(af), intfId, mType);
}

MessageCounter MessageCounterColl::txAfCount(Wirra::IntfId intfId, RsvpMsgType mType,
                                             Wirra::AddressFamily af) const {
    return read(txTable(af), intfId, mType);
}

void MessageCounterColl::increment(Table& table, Wirra::IntfId intfId, RsvpMsgType mType) {
    MessageCounter counter = read(table, intfId, mType);
    counter.countInc(1);
    table.is(counter);
}

void MessageCounterColl::incRxCount(Wirra::IntfId intfId, RsvpMsgType mType,
                                    Wirra::AddressFamily af) {
    increment(af == Wirra::ipv4AddressFamily ? rxIpv4Count_ : rxIpv6Count_, intfId, mType);
}

void MessageCounterColl::incTxCount(Wirra::IntfId intfId, RsvpMsgType mType,
                                    Wirra::AddressFamily af) {
    increment(af == Wirra::ipv4AddressFamily ? txIpv4Count_ : txIpv6Count_, intfId, mType);
}

std::uint32_t MessageCounterColl::rxIpv4RelativeCount(const MessageCounterKey& key,
                                                      const Snapshot& snapshot) const {
    return rxIpv4Count_.relativeCount(key, snapshot->rxIpv4Count_);
}

std::uint32_t MessageCounterColl::rxIpv6RelativeCount(const MessageCounterKey& key,
                                                      const Snapshot& snapshot) const {
    return rxIpv6Count_.relativeCount(key, snapshot->rxIpv6Count_);
}

std::uint32_t MessageCounterColl::txIpv4RelativeCount(const MessageCounterKey& key,
                                                      const Snapshot& snapshot) const {
    return txIpv4Count_.relativeCount(key, snapshot->txIpv4Count_);
}

std::uint32_t MessageCounterColl::txIpv6RelativeCount(const MessageCounterKey& key,
                                                      const Snapshot& snapshot) const {
    return txIpv6Count_.relativeCount(key, snapshot->txIpv6Count_);
}

void MessageCounterColl::snapshotFrom(const Snapshot& originalCounterColl) {
    const Mox::KeepAlive alive(this);
    const Mox::KeepAlive originalAlive(originalCounterColl.get());
    const MessageCounterColl& original = *originalCounterColl; // observers may change the reference
    rxIpv4Count_.copyFrom(original.rxIpv4Count_);
    rxIpv6Count_.copyFrom(original.rxIpv6Count_);
    txIpv4Count_.copyFrom(original.txIpv4Count_);
    txIpv6Count_.copyFrom(original.txIpv6Count_);
}

MoxVesk::MountInfo MessageCounterColl::writerMountInfo() {
    MoxVesk::MountInfo info(0);
    for (const char* const table : {"rxIpv4Count", "rxIpv6Count", "txIpv4Count", "txIpv6Count"}) {
        info.collectionInfoIs(table, collectionSize, false);
    }
    return info;
}

} // namespace Rsvp::Vesk
