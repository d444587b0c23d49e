#pragma once

#include "MoxVesk/Collection.h"
#include "MoxVesk/MountInfo.h"
#include "Rsvp/MessageCounter.h"
#include "Rsvp/RsvpMsgType.h"
#include "Rsvp/Tables.h"
#include "Wirra/AddressFamily.h"
#include "Wirra/IntfId.h"

#include <cstdint>

namespace Rsvp::Vesk {

/// How many RSVP messages an agent has received and sent, by interface and type of message, for
/// IPv4 and IPv6 apart. Erroneous messages count under type 0. Used from one thread.
class MessageCounterColl final : public MoxVesk::Collection<MessageCounterColl> {
  public:
    static constexpr const char* mountPath = "mpls/rsvp/messageCounters";
    static constexpr const char* snapshotMountPath = "mpls/rsvp/messageCountersSnapshot";
    static constexpr std::uint32_t maxIntfs = 512;
    static constexpr std::uint32_t msgTypes = 11;
    static constexpr std::uint32_t collectionSize = maxIntfs * msgTypes; ///< of each table

    using MessageCounterCollZeroReferencesNotifiee =
        MoxVesk::ZeroReferencesNotifiee<MessageCounterColl>;

    explicit MessageCounterColl(const Pello::String& name);
    ~MessageCounterColl() override { notifieeList()->deleteAll(); }

    /// A new collection with its notifications on.
    static Mox::Ptr<MessageCounterColl> MessageCounterCollIs(const Pello::String& name) {
        return make(name);
    }

    Mox::MoxTypeBase fwkType() const override { return {"RsvpCounters", 3}; }

    // Add 1 to a counter, modulo 2^32. Family 1 is IPv4, every other one IPv6.
    void incRxCount(Wirra::IntfId intfId, RsvpMsgType mType, Wirra::AddressFamily af);
    void incTxCount(Wirra::IntfId intfId, RsvpMsgType mType, Wirra::AddressFamily af);
    void incRxErr(Wirra::IntfId intfId, Wirra::AddressFamily af) {
        incRxCount(intfId, rsvpNoneMsg, af);
    }
    void incTxErr(Wirra::IntfId intfId, Wirra::AddressFamily af) {
        incTxCount(intfId, rsvpNoneMsg, af);
    }

    /// The counter, with count 0 when there is none.
    MessageCounter rxAfCount(Wirra::IntfId intfId, RsvpMsgType mType,
                             Wirra::AddressFamily af) const;
    MessageCounter txAfCount(Wirra::IntfId intfId, RsvpMsgType mType,
                             Wirra::AddressFamily af) const;

    // What a count has grown by since a snapshot: 0 when it is not larger than it was then, as
    // after a reset. The snapshot must not be null.
    using Snapshot = Mox::Ptr<const MessageCounterColl>;
    std::uint32_t rxIpv4RelativeCount(const MessageCounterKey& key, const Snapshot& snapshot) const;
    std::uint32_t rxIpv6RelativeCount(const MessageCounterKey& key, const Snapshot& snapshot) const;
    std::uint32_t txIpv4RelativeCount(const MessageCounterKey& key, const Snapshot& snapshot) const;
    std::uint32_t txIpv6RelativeCount(const MessageCounterKey& key, const Snapshot& snapshot) const;

    /// Makes the four tables copies of those of the original, which must not be null. A copy of
    /// itself is empty.
    void snapshotFrom(const Snapshot& originalCounterColl);

    static MoxVesk::MountInfo writerMountInfo();

    MOXVESK_TABLE_MEMBERS(rxIpv4Count, MessageCounter, MessageCounterKey, const MessageCounter&,
                          const MessageCounterKey&)
    MOXVESK_TABLE_MEMBERS(rxIpv6Count, MessageCounter, MessageCounterKey, const MessageCounter&,
                          const MessageCounterKey&)
    MOXVESK_TABLE_MEMBERS(txIpv4Count, MessageCounter, MessageCounterKey, const MessageCounter&,
                          const MessageCounterKey&)
    MOXVESK_TABLE_MEMBERS(txIpv6Count, MessageCounter, MessageCounterKey, const MessageCounter&,
                          const MessageCounterKey&)

  private:
    friend class Collection<MessageCounterColl>;
    using Table = MoxVesk::CollTable<MessageCounterColl, MessageCounter, MessageCounterKey,
                                     MessageCounterOps>;

    template <class Visit>
    void forEachTable(Visit visit) {
        using C = MessageCounterColl;
        visit(txIpv6Count_, &C::txIpv6CountNotify, &C::txIpv6CountNotifyMountStatus,
              &C::txIpv6CountNotifyQuiesced);
        visit(txIpv4Count_, &C::txIpv4CountNotify, &C::txIpv4CountNotifyMountStatus,
              &C::txIpv4CountNotifyQuiesced);
        visit(rxIpv6Count_, &C::rxIpv6CountNotify, &C::rxIpv6CountNotifyMountStatus,
              &C::rxIpv6CountNotifyQuiesced);
        visit(rxIpv4Count_, &C::rxIpv4CountNotify, &C::rxIpv4CountNotifyMountStatus,
              &C::rxIpv4CountNotifyQuiesced);
    }
    template <class Visit>
    void forEachControl(Visit visit) {
        visit(txIpv6CountControlHold_);
        visit(txIpv4CountControlHold_);
        visit(rxIpv6CountControlHold_);
        visit(rxIpv4CountControlHold_);
    }

    static MessageCounter read(const Table& table, Wirra::IntfId intfId, RsvpMsgType mType);
    static void increment(Table& table, Wirra::IntfId intfId, RsvpMsgType mType);
    const Table& rxTable(Wirra::AddressFamily af) const;
    const Table& txTable(Wirra::AddressFamily af) const;

    MoxVesk::TableControl txIpv6CountControlHold_;
    MoxVesk::TableControl txIpv4CountControlHold_;
    MoxVesk::TableControl rxIpv6CountControlHold_;
    MoxVesk::TableControl rxIpv4CountControlHold_;
    Table rxIpv4Count_{*this, rxIpv4CountControlHold_, "rxIpv4Count", 0x102};
    Table rxIpv6Count_{*this, rxIpv6CountControlHold_, "rxIpv6Count", 0x104};
    Table txIpv4Count_{*this, txIpv4CountControlHold_, "txIpv4Count", 0x106};
    Table txIpv6Count_{*this, txIpv6CountControlHold_, "txIpv6Count", 0x108};
};

} // namespace Rsvp::Vesk
