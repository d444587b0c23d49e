#pragma once

#include "MoxVesk/Collection.h"
#include "MoxVesk/MountInfo.h"
#include "Rsvp/Tables.h"

#include <cstdint>

namespace Rsvp {

/// What has happened to the state paths of an agent: one entry for each event, under a number of
/// the agent's choice. Entries stay until the agent removes them. Used from one thread.
class RsvpSpHistory final : public MoxVesk::Collection<RsvpSpHistory> {
  public:
    static constexpr const char* mountPath = "mpls/rsvp/spHistory";
    static constexpr std::uint32_t collectionSize = 1000000;

    using RsvpSpHistoryZeroReferencesNotifiee = MoxVesk::ZeroReferencesNotifiee<RsvpSpHistory>;

    explicit RsvpSpHistory(const Pello::String& name);
    ~RsvpSpHistory() override { notifieeList()->deleteAll(); }

    /// A new collection with its notifications on.
    static Mox::Ptr<RsvpSpHistory> RsvpSpHistoryIs(const Pello::String& name) { return make(name); }

    Mox::MoxTypeBase fwkType() const override { return {"RsvpHistory", 7}; }

    static MoxVesk::MountInfo writerMountInfo();

    MOXVESK_TABLE_MEMBERS(spHistory, RsvpSpHistoryEntry, RsvpSpHistoryKey,
                          const RsvpSpHistoryEntry&, const RsvpSpHistoryKey&)

  private:
    friend class Collection<RsvpSpHistory>;
    using Table =
        MoxVesk::CollTable<RsvpSpHistory, RsvpSpHistoryEntry, RsvpSpHistoryKey, RsvpSpHistoryOps>;

    template <class Visit>
    void forEachTable(Visit visit) {
        using C = RsvpSpHistory;
        visit(spHistory_, &C::spHistoryNotify, &C::spHistoryNotifyMountStatus,
              &C::spHistoryNotifyQuiesced);
    }
    template <class Visit>
    void forEachControl(Visit visit) {
        visit(spHistoryControlHold_);
    }

    MoxVesk::TableControl spHistoryControlHold_;
    Table spHistory_{*this, spHistoryControlHold_, "spHistory", 0x102};
};

} // namespace Rsvp
