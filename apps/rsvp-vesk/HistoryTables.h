#pragma once

#include "EntryNumbers.h"

#include "MoxVesk/MountInfo.h"
#include "Rsvp/RsvpSessionHistory.h"
#include "Rsvp/RsvpSpHistory.h"
#include "state/Events.h"

#include <cstdint>
#include <vector>

/// The collections of what has happened to sessions and state paths, mounted below the base of all
/// root paths.
class HistoryTables final : public State::Sink {
  public:
    /// Throws what initialising the tables for that use throws; what was opened before is closed
    /// again. As a writer the histories go on from what the files hold, unless `fresh`.
    explicit HistoryTables(Vesk::VeskType mode, bool fresh = false);
    ~HistoryTables() override;

    // Store an entry under the next number of its session or path. The oldest entry makes room for
    // it when there are `collectionSize`.
    void session(const State::SessionEvent& event) override;
    void path(const State::PathEvent& event) override;

    /// All entries, the oldest first; those of one time in the order of their numbers.
    std::vector<Rsvp::RsvpSessionHistoryEntry> sessions() const;
    std::vector<Rsvp::RsvpSpHistoryEntry> paths() const;

    std::uint32_t sessionEntries() const { return sessions_->sessionHistoryMap().members(); }
    std::uint32_t pathEntries() const { return paths_->spHistoryMap().members(); }

    /// The tables of sessions and of paths.
    std::vector<Vesk::VeskMapBase*> fronts() const;

  private:
    MoxVesk::Mounter mounter_;
    Mox::Ptr<Rsvp::RsvpSessionHistory> sessions_;
    Mox::Ptr<Rsvp::RsvpSpHistory> paths_;
    EntryNumbers<Rsvp::RsvpSessionId> sessionNumbers_;
    EntryNumbers<Rsvp::RsvpSpId> pathNumbers_;
};
