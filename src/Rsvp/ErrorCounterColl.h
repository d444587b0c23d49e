#pragma once

#include "MoxVesk/Collection.h"
#include "MoxVesk/MountInfo.h"
#include "Rsvp/ErrorCounter.h"
#include "Rsvp/RsvpErrorType.h"
#include "Rsvp/Tables.h"

#include <cstdint>

namespace Rsvp::Vesk {

/// How many RSVP errors of each kind an agent has met in what it received and sent. Used from one
/// thread.
class ErrorCounterColl final : public MoxVesk::Collection<ErrorCounterColl> {
  public:
    static constexpr const char* mountPath = "mpls/rsvp/errorCounters";
    static constexpr const char* snapshotMountPath = "mpls/rsvp/errorCountersSnapshot";
    static constexpr std::uint32_t collectionSize = 10; ///< of each table

    using ErrorCounterCollZeroReferencesNotifiee =
        MoxVesk::ZeroReferencesNotifiee<ErrorCounterColl>;

    explicit ErrorCounterColl(const Pello::String& name);
    ~ErrorCounterColl() override { notifieeList()->deleteAll(); }

    /// A new collection with its notifications on.
    static Mox::Ptr<ErrorCounterColl> ErrorCounterCollIs(const Pello::String& name) {
        return make(name);
    }

    Mox::MoxTypeBase fwkType() const override { return {"RsvpCounters", 6}; }

    // Add 1 to a counter, modulo 2^32.
    void incRxCount(RsvpErrorType errorType);
    void incTxCount(RsvpErrorType errorType);

    // What a count has grown by since a snapshot: 0 when it is not larger than it was then, as
    // after a reset. The snapshot must not be null.
    using Snapshot = Mox::Ptr<const ErrorCounterColl>;
    std::uint32_t rxErrorRelativeCount(ErrorCounterKey key, const Snapshot& snapshot) const;
    std::uint32_t txErrorRelativeCount(ErrorCounterKey key, const Snapshot& snapshot) const;

    /// Makes the two tables copies of those of the original, which must not be null. A copy of
    /// itself is empty.
    void snapshotFrom(const Snapshot& originalCounterColl);

    static MoxVesk::MountInfo writerMountInfo();

    MOXVESK_TABLE_MEMBERS(rxErrorCount, ErrorCounter, ErrorCounterKey, ErrorCounter,
                          ErrorCounterKey)
    MOXVESK_TABLE_MEMBERS(txErrorCount, ErrorCounter, ErrorCounterKey, ErrorCounter,
                          ErrorCounterKey)

  private:
    friend class Collection<ErrorCounterColl>;
    using Table =
        MoxVesk::CollTable<ErrorCounterColl, ErrorCounter, ErrorCounterKey, ErrorCounterOps>;

    template <class Visit>
    void forEachTable(Visit visit) {
        using C = ErrorCounterColl;
        visit(txErrorCount_, &C::txErrorCountNotify, &C::txErrorCountNotifyMountStatus,
              &C::txErrorCountNotifyQuiesced);
        visit(rxErrorCount_, &C::rxErrorCountNotify, &C::rxErrorCountNotifyMountStatus,
              &C::rxErrorCountNotifyQuiesced);
    }
    template <class Visit>
    void forEachControl(Visit visit) {
        visit(txErrorCountControlHold_);
        visit(rxErrorCountControlHold_);
    }
    static void increment(Table& table, RsvpErrorType errorType);

    MoxVesk::TableControl txErrorCountControlHold_;
    MoxVesk::TableControl rxErrorCountControlHold_;
    Table rxErrorCount_{*this, rxErrorCountControlHold_, "rxErrorCount", 0x102};
    Table txErrorCount_{*this, txErrorCountControlHold_, "txErrorCount", 0x104};
};

} // namespace Rsvp::Vesk
