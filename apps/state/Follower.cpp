#include "state/Follower.h"

#include <algorithm>
#include <limits>

namespace State {

namespace {

using Packets::MessageType;

constexpr std::uint32_t kUsualRefreshPeriod = 30'000;   // milliseconds; RFC 2205, section 3.7
constexpr std::int64_t kLifePerMillisecond = 5'250'000; // nanoseconds: (3 + 1/2) * 1.5 periods
/// Later times count as this one, which leaves room for the longest life.
constexpr std::int64_t kLatest = std::numeric_limits<std::int64_t>::max() -
                                 kLifePerMillisecond * std::numeric_limits<std::uint32_t>::max();
constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

[[nodiscard]] std::int64_t lifeOf(std::uint32_t refreshPeriod) {
    return kLifePerMillisecond * (refreshPeriod != 0 ? refreshPeriod : kUsualRefreshPeriod);
}

/// Sets of history entries.
[[nodiscard]] constexpr unsigned bit(Rsvp::RsvpSpHistoryEntryType type) { return 1U << type; }

template <class T>
[[nodiscard]] unsigned assign(T& field, const T& value, Rsvp::RsvpSpHistoryEntryType type) {
    if (field == value) return 0;
    field = value;
    return bit(type);
}

[[nodiscard]] unsigned toldByPath(PathState& state, const RecordedHop& recorded) {
    return assign(state.usFrrInUse, recorded.has(RecordedHop::protectionInUse),
                  Rsvp::rsvpSpUsFrrInUseHistoryEntry);
}

[[nodiscard]] unsigned toldByResv(PathState& state, const RecordedHop& recorded) {
    const auto protection = [&](std::uint8_t flag, Rsvp::RsvpSpHistoryEntryType type, bool& is,
                                Wirra::IpGenAddr& nextHop, bool& nodeProtected) {
        const bool told = recorded.has(flag);
        return assign(is, told, type) |
               assign(nextHop, told ? recorded.address : Wirra::IpGenAddr(), type) |
               assign(nodeProtected, told && recorded.has(RecordedHop::nodeProtected), type);
    };
    return protection(RecordedHop::protectionAvailable, Rsvp::rsvpSpFrrAvailableHistoryEntry,
                      state.bypassAvailable, state.bypassNextHop, state.bypassNodeProtected) |
           protection(RecordedHop::protectionInUse, Rsvp::rsvpSpDsFrrInUseHistoryEntry,
                      state.dsFrrInUse, state.dsNextHop, state.dsNodeProtected);
}

} // namespace

void Follower::message(const Observed& seen) {
    advance(seen.time);
    content_.read(seen.message);
    ++messages_;
    const Feed feed{.interface = seen.interface, .sent = seen.sent};
    for (const MessageId& id : content_.acknowledged) {
        refreshById({.interface = seen.interface, .sent = !seen.sent}, id, nullptr);
    }
    switch (static_cast<MessageType>(content_.type)) {
    case MessageType::path:
        tell(seen, byPath);
        break;
    case MessageType::resv:
        tell(seen, byResv);
        break;
    case MessageType::pathErr:
    case MessageType::resvErr:
        if (content_.error) forEachNamed([this](std::uint32_t slot) { error(paths_[slot]); });
        break;
    case MessageType::pathTear:
        forEachNamed([this](std::uint32_t slot) { endHalves(slot, now_, true, true); });
        break;
    case MessageType::resvTear:
        forEachNamed([this](std::uint32_t slot) { endHalves(slot, now_, false, true); });
        break;
    case MessageType::srefresh:
        for (const MessageId& id : content_.listed) {
            refreshById(feed, id, &seen.source);
        }
        break;
    default:
        break;
    }
}

// ---- Time

void Follower::advance(std::int64_t time) {
    now_ = std::max(now_, std::min(time, kLatest));
    while (!timers_.empty() && timers_.first().due <= now_) {
        const Timers::Timer timer = timers_.first();
        const Path& path = paths_[timer.slot];
        const auto isOver = [&](Which which) {
            return path.halves[which].up && path.halves[which].end() <= timer.due;
        };
        // Refreshing moves no timer; it is moved when it runs out too early.
        if (!isOver(byPath) && !isOver(byResv)) {
            startTimer(timer.slot);
        } else {
            endHalves(timer.slot, timer.due, isOver(byPath), isOver(byResv));
        }
    }
}

void Follower::startTimer(std::uint32_t slot) {
    Path& path = paths_[slot];
    path.timer = kNever;
    for (const Half& half : path.halves) {
        if (half.up) path.timer = std::min(path.timer, half.end());
    }
    timers_.set({.due = path.timer, .rank = path.rank, .slot = slot});
}

// ---- PATH and RESV

void Follower::tell(const Observed& seen, Which which) {
    told_.clear();
    const Feed feed{.interface = seen.interface, .sent = seen.sent};
    if (content_.wildcard) {
        forEachNamed([&](std::uint32_t slot) {
            tellHalf(slot, which, feed, content_.bandwidth, content_.recorded);
        });
    }
    for (const Sender& sender : content_.senders) {
        const std::uint32_t hash = sender.path.hash();
        std::uint32_t slot = findPath(sender.path, hash);
        if (slot == kNoSlot) slot = begin(sender.path, hash);
        if (slot == kNoSlot) continue;
        tellHalf(slot, which, feed, sender.bandwidth, sender.recorded);
    }
    if (content_.messageId) remember(seen, which);
}

void Follower::tellHalf(std::uint32_t slot, Which which, const Feed& feed, std::uint64_t bandwidth,
                        const RecordedHop& recorded) {
    Path& path = paths_[slot];
    PathState& state = path.state;
    Half& half = path.halves[which];
    if (half.message == messages_) return; // named twice
    const bool isNew = !half.up;
    const bool tellsDetails = refresh(slot, which, feed, content_.refreshPeriod);
    half.message = messages_;
    told_.push_back(slot);

    unsigned changes = assign(which == byPath ? state.spOperPathState : state.spOperResvState,
                              Rsvp::rsvpSpUpOperState, Rsvp::rsvpSpOperStateHistoryEntry);
    if (tellsDetails) {
        changes |= which == byPath ? toldByPath(state, recorded) : toldByResv(state, recorded);
        const bool isOther = half.bandwidth != bandwidth;
        half.bandwidth = bandwidth;
        const Rsvp::RsvpSpBwAdmission before = state.bwState.admission();
        // Repeating a request does not question the answer that it got.
        const bool isAnswered =
            before == Rsvp::rsvpSpAdmittedBwAdmission || before == Rsvp::rsvpSpRejectedBwAdmission;
        if (which == byPath ? !isAnswered || (isOther && !isNew)
                            : before != Rsvp::rsvpSpRejectedBwAdmission || isOther || isNew) {
            changes |= assign(state.bwState,
                              Rsvp::RsvpSpBwState(which == byPath ? Rsvp::rsvpSpPendingBwAdmission
                                                                  : Rsvp::rsvpSpAdmittedBwAdmission,
                                                  {}, bandwidth, feed.interface),
                              Rsvp::rsvpSpBwStateHistoryEntry);
        }
    }
    report(path, changes, now_);
}

bool Follower::refresh(std::uint32_t slot, Which which, const Feed& feed,
                       std::uint32_t refreshPeriod) {
    Path& path = paths_[slot];
    Half& half = path.halves[which];
    const std::int64_t until = now_ + lifeOf(refreshPeriod);
    if (!half.up) {
        half.up = true;
        half.feed = feed;
    } else if (half.feed != feed) {
        const bool isSilent = half.untilByFeed <= now_;
        if (!isSilent && (feed.sent || !half.feed.sent)) {
            half.untilByOthers = std::max(half.untilByOthers, until);
            return false;
        }
        half.untilByOthers = std::max(half.untilByOthers, half.untilByFeed);
        half.feed = feed;
    }
    half.untilByFeed = until;
    if (half.end() < path.timer) startTimer(slot);
    return true;
}

// ---- MESSAGE_IDs

/// From now on the message's number stands for the halves that it told, and for no others.
void Follower::remember(const Observed& seen, Which which) {
    const bool hasHop = content_.hop.family() != Wirra::unknownAddressFamily;
    IdNode node{.feed = {.interface = seen.interface, .sent = seen.sent},
                .neighbour = hasHop ? content_.hop : seen.source,
                .epoch = content_.messageId->epoch,
                .number = content_.messageId->number,
                .refreshPeriod = content_.refreshPeriod};
    for (const std::uint32_t known : ids_.find(node.feed, *content_.messageId, &node.neighbour)) {
        const HalfNumber number = ids_[known].half;
        Half& half = paths_[number / 2].halves[number % 2];
        if (half.message == messages_) {
            ids_[known].refreshPeriod = node.refreshPeriod;
        } else {
            forget(half, known);
        }
    }
    for (const std::uint32_t slot : told_) {
        node.half = 2 * slot + which;
        rememberFor(paths_[slot].halves[which], node);
    }
}

void Follower::rememberFor(Half& half, const IdNode& node) {
    const auto last = std::find_if(half.ids.begin(), half.ids.end(), [&](std::uint32_t id) {
        return id != kNoSlot && ids_[id].feed == node.feed;
    });
    if (last != half.ids.end()) {
        const IdNode& known = ids_[*last];
        if (known.number == node.number && known.epoch == node.epoch &&
            known.neighbour == node.neighbour) {
            return;
        }
        forget(half, *last);
    } else if (half.ids.back() != kNoSlot) {
        forget(half, half.ids.front());
    }
    *std::find(half.ids.begin(), half.ids.end(), kNoSlot) = ids_.add(node);
}

void Follower::forget(Half& half, std::uint32_t id) {
    std::fill(std::remove(half.ids.begin(), half.ids.end(), id), half.ids.end(), kNoSlot);
    ids_.remove(id);
}

void Follower::refreshById(const Feed& feed, const MessageId& id,
                           const Wirra::IpGenAddr* neighbour) {
    for (const std::uint32_t known : ids_.find(feed, id, neighbour)) {
        const IdNode& node = ids_[known];
        (void)refresh(node.half / 2, static_cast<Which>(node.half % 2), feed, node.refreshPeriod);
    }
}

// ---- Begin and end

std::uint32_t Follower::findSession(const Rsvp::RsvpSessionId& id, std::uint32_t hash) {
    return sessions_.find(hash, [&](const Session& session) { return session.id == id; });
}

std::uint32_t Follower::findPath(const Rsvp::RsvpSpId& id, std::uint32_t hash) {
    return paths_.find(hash, [&](const Path& path) { return path.id == id; });
}

/// Calls `visit(slot)` for each known path that the message names; `visit` may end it.
template <class Visit>
void Follower::forEachNamed(Visit visit) {
    for (const Sender& sender : content_.senders) {
        const std::uint32_t slot = findPath(sender.path, sender.path.hash());
        if (slot != kNoSlot) visit(slot);
    }
    if (!content_.wildcard) return;
    const std::uint32_t session = findSession(*content_.session, content_.session->hash(0));
    if (session == kNoSlot) return;
    std::uint32_t slot = sessions_[session].firstPath;
    while (slot != kNoSlot) {
        const std::uint32_t next = paths_[slot].next;
        visit(slot);
        slot = next;
    }
}

/// The slot of a new path, without halves; kNoSlot when there is no room.
std::uint32_t Follower::begin(const Rsvp::RsvpSpId& id, std::uint32_t hash) {
    const std::uint32_t sessionHash = id.sessionId().hash(0);
    std::uint32_t session = findSession(id.sessionId(), sessionHash);
    if (session == kNoSlot && sessions_.size() >= limits_.sessions) {
        ++refusedSessions_;
        return kNoSlot;
    }
    if (paths_.size() >= limits_.paths) {
        ++refusedPaths_;
        return kNoSlot;
    }
    if (session == kNoSlot) {
        session = sessions_.add(sessionHash);
        sessions_[session].id = id.sessionId();
        sink_.session({.session = id.sessionId(),
                       .time = now_,
                       .type = Rsvp::rsvpSessionCreationHistoryEntry,
                       .spCliId = {},
                       .created = true});
    }
    const std::uint32_t slot = paths_.add(hash);
    if (++lastCliId_ == Rsvp::RsvpCliId::kNone) ++lastCliId_;
    Path& path = paths_[slot];
    path.id = id;
    path.cliId = Rsvp::RsvpCliId(lastCliId_);
    path.rank = begun_++;
    path.session = session;
    path.timer = kNever;
    path.next = sessions_[session].firstPath;
    if (path.next != kNoSlot) paths_[path.next].previous = slot;
    sessions_[session].firstPath = slot;
    sink_.session({.session = id.sessionId(),
                   .time = now_,
                   .type = Rsvp::rsvpSessionMemberHistoryEntry,
                   .spCliId = path.cliId,
                   .created = true});
    return slot;
}

/// Ends the halves that are meant, and with the last one the path.
void Follower::endHalves(std::uint32_t slot, std::int64_t time, bool ofPath, bool ofResv) {
    Path& path = paths_[slot];
    PathState& state = path.state;
    unsigned changes = 0;
    if (ofPath) changes |= endHalf(path.halves[byPath], state.spOperPathState);
    if (ofResv) changes |= endHalf(path.halves[byResv], state.spOperResvState);
    const Half& request = path.halves[byPath];
    if (ofResv && request.up && state.bwState.admission() == Rsvp::rsvpSpAdmittedBwAdmission) {
        changes |= assign(state.bwState,
                          Rsvp::RsvpSpBwState(Rsvp::rsvpSpPendingBwAdmission, {}, request.bandwidth,
                                              request.feed.interface),
                          Rsvp::rsvpSpBwStateHistoryEntry);
    }
    report(path, changes, time);
    if (request.up || path.halves[byResv].up) {
        startTimer(slot);
    } else {
        endPath(slot, time);
    }
}

/// Returns the entries that this is worth.
unsigned Follower::endHalf(Half& half, Rsvp::RsvpSpOperState& state) {
    if (!half.up) return 0;
    for (const std::uint32_t id : half.ids) {
        if (id != kNoSlot) ids_.remove(id);
    }
    half = Half();
    return assign(state, Rsvp::rsvpSpDownOperState, Rsvp::rsvpSpOperStateHistoryEntry);
}

void Follower::endPath(std::uint32_t slot, std::int64_t time) {
    const Path& path = paths_[slot];
    Session& session = sessions_[path.session];
    sink_.session({.session = session.id,
                   .time = time,
                   .type = Rsvp::rsvpSessionMemberHistoryEntry,
                   .spCliId = path.cliId,
                   .created = false});
    if (path.next != kNoSlot) paths_[path.next].previous = path.previous;
    if (path.previous != kNoSlot) {
        paths_[path.previous].next = path.next;
    } else {
        session.firstPath = path.next;
    }
    if (session.firstPath == kNoSlot) {
        sink_.session({.session = session.id,
                       .time = time,
                       .type = Rsvp::rsvpSessionCreationHistoryEntry,
                       .spCliId = {},
                       .created = false});
        sessions_.remove(path.session);
    }
    timers_.remove(slot);
    paths_.remove(slot);
}

// ---- Entries

void Follower::error(Path& path) {
    constexpr std::uint32_t admissionControlFailure = 1; // RFC 2205, appendix B
    PathState& state = path.state;
    const Rsvp::RsvpError error = content_.error->error;
    unsigned changes = assign(state.error, error, Rsvp::rsvpSpErrorHistoryEntry);
    if (error.errorCode() == admissionControlFailure) {
        changes |= assign(state.bwState,
                          Rsvp::RsvpSpBwState(Rsvp::rsvpSpRejectedBwAdmission, error,
                                              state.bwState.bandwidth(), state.bwState.intfId()),
                          Rsvp::rsvpSpBwStateHistoryEntry);
    }
    report(path, changes, now_);
}

void Follower::report(const Path& path, unsigned changes, std::int64_t time) {
    for (std::uint32_t type = 0; changes >> type != 0; ++type) {
        if ((changes >> type & 1U) == 0) continue;
        sink_.path({.path = path.id,
                    .time = time,
                    .type = static_cast<Rsvp::RsvpSpHistoryEntryType>(type),
                    .state = path.state});
    }
}

} // namespace State
