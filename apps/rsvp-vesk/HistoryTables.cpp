#include "HistoryTables.h"

#include <algorithm>

using Rsvp::RsvpSessionHistory;
using Rsvp::RsvpSessionHistoryEntry;
using Rsvp::RsvpSpHistory;
using Rsvp::RsvpSpHistoryEntry;

namespace {

template <class Entry, class Map>
std::vector<Entry> entriesOf(const Map& map) {
    std::vector<Entry> entries;
    entries.reserve(map.members());
    for (typename Map::IteratorConst each(&map); each.valid(); each.advance()) {
        entries.push_back(*each);
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        if (Entry::timestampLesser(a, b)) return true;
        return !Entry::timestampLesser(b, a) && a.key().entryId() < b.key().entryId();
    });
    return entries;
}

Mox::Seconds secondsOf(std::int64_t nanoseconds) {
    return Mox::Seconds(static_cast<double>(nanoseconds) / 1e9);
}

} // namespace

HistoryTables::HistoryTables(Vesk::VeskType mode, bool fresh)
    : sessions_(RsvpSessionHistory::RsvpSessionHistoryIs("sessionHistory"))
    , paths_(RsvpSpHistory::RsvpSpHistoryIs("spHistory"))
    , sessionNumbers_(RsvpSessionHistory::collectionSize)
    , pathNumbers_(RsvpSpHistory::collectionSize) {
    const auto adjust = [fresh](const std::string&, Vesk::MapDescriptor& descriptor) {
        descriptor.cleanupOnInit = fresh;
        descriptor.shrinkSlots = true;
        descriptor.shrinkBuckets = true;
    };
    mounter_.mount(sessions_, RsvpSessionHistory::mountPath, RsvpSessionHistory::writerMountInfo(),
                   mode, adjust);
    mounter_.mount(paths_, RsvpSpHistory::mountPath, RsvpSpHistory::writerMountInfo(), mode,
                   adjust);
    if (mode != Vesk::VeskType::writer) return;
    for (const RsvpSessionHistoryEntry& entry : sessions()) {
        sessionNumbers_.resume(entry.key().sessionId(), entry.key().entryId());
    }
    for (const RsvpSpHistoryEntry& entry : paths()) {
        pathNumbers_.resume(entry.key().spId(), entry.key().entryId());
    }
}

HistoryTables::~HistoryTables() {
    mounter_.unmount(RsvpSessionHistory::mountPath);
    mounter_.unmount(RsvpSpHistory::mountPath);
}

void HistoryTables::session(const State::SessionEvent& event) {
    const std::uint32_t number = sessionNumbers_.next(
        event.session, [this](const Rsvp::RsvpSessionId& of, std::uint32_t old) {
            sessions_->sessionHistoryDel({of, old});
        });
    RsvpSessionHistoryEntry entry({event.session, number}, secondsOf(event.time), event.type);
    entry.spCliIdIs(event.spCliId);
    entry.createdIs(event.created);
    sessions_->sessionHistoryIs(entry);
}

void HistoryTables::path(const State::PathEvent& event) {
    const std::uint32_t number =
        pathNumbers_.next(event.path, [this](const Rsvp::RsvpSpId& of, std::uint32_t old) {
            paths_->spHistoryDel({of, old});
        });
    RsvpSpHistoryEntry entry({event.path, number}, secondsOf(event.time), event.type);
    entry.spOperPathStateIs(event.state.spOperPathState);
    entry.spOperResvStateIs(event.state.spOperResvState);
    entry.bypassAvailableIs(event.state.bypassAvailable);
    entry.bypassNextHopIs(event.state.bypassNextHop);
    entry.bypassNodeProtectedIs(event.state.bypassNodeProtected);
    entry.dsFrrInUseIs(event.state.dsFrrInUse);
    entry.dsNextHopIs(event.state.dsNextHop);
    entry.dsNodeProtectedIs(event.state.dsNodeProtected);
    entry.usFrrInUseIs(event.state.usFrrInUse);
    entry.errorIs(event.state.error);
    entry.bwStateIs(event.state.bwState);
    paths_->spHistoryIs(entry);
}

std::vector<RsvpSessionHistoryEntry> HistoryTables::sessions() const {
    return entriesOf<RsvpSessionHistoryEntry>(sessions_->sessionHistoryMap());
}

std::vector<RsvpSpHistoryEntry> HistoryTables::paths() const {
    return entriesOf<RsvpSpHistoryEntry>(paths_->spHistoryMap());
}

std::vector<Vesk::VeskMapBase*> HistoryTables::fronts() const {
    return {&sessions_->sessionHistoryMap(), &paths_->spHistoryMap()};
}
