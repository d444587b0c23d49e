#pragma once

#include "MoxVesk/Collection.h"
#include "MoxVesk/MountInfo.h"
#include "Rsvp/Tables.h"

#include <cstdint>

namespace Rsvp {

/// What has happened to the sessions of an agent: one entry for each event, under a number of the
/// agent's choice. Entries stay until the agent removes them. Used from one thread.
class RsvpSessionHistory final : public MoxVesk::Collection<RsvpSessionHistory> {
  public:
    static constexpr const char* mountPath = "mpls/rsvp/sessionHistory";
    static constexpr std::uint32_t collectionSize = 500000;

    using RsvpSessionHistoryZeroReferencesNotifiee =
        MoxVesk::ZeroReferencesNotifiee<RsvpSessionHistory>;

    explicit RsvpSessionHistory(const Pello::String& name);
    ~RsvpSessionHistory() override { notifieeList()->deleteAll(); }

    /// A new collection with its notifications on.
    static Mox::Ptr<RsvpSessionHistory> RsvpSessionHistoryIs(const Pello::String& name) {
        return make(name);
    }

    Mox::MoxTypeBase fwkType() const override { return {"RsvpHistory", 4}; }

    static MoxVesk::MountInfo writerMountInfo();

    MOXVESK_TABLE_MEMBERS(sessionHistory, RsvpSessionHistoryEntry, RsvpSessionHistoryKey,
                          const RsvpSessionHistoryEntry&, const RsvpSessionHistoryKey&)

  private:
    friend class Collection<RsvpSessionHistory>;
    using Table = MoxVesk::CollTable<RsvpSessionHistory, RsvpSessionHistoryEntry,
                                     RsvpSessionHistoryKey, RsvpSessionHistoryOps>;

    template <class Visit>
    void forEachTable(Visit visit) {
        using C = RsvpSessionHistory;
        visit(sessionHistory_, &C::sessionHistoryNotify, &C::sessionHistoryNotifyMountStatus,
              &C::sessionHistoryNotifyQuiesced);
    }
    template <class Visit>
    void forEachControl(Visit visit) {
        visit(sessionHistoryControlHold_);
    }

    MoxVesk::TableControl sessionHistoryControlHold_;
    Table sessionHistory_{*this, sessionHistoryControlHold_, "sessionHistory", 0x102};
};

} // namespace Rsvp
