#pragma once

// Follows the soft state of RSVP (RFC 2205, section 3.7) from outside: hears the sound messages
// that pass at a node, and tells what becomes of sessions and state paths.
//
//   A state path is one sender of a session. It has two halves, told by PATH and by RESV, and lives
//   while it has one of them; a session lives while it has a path. PATH and RESV begin what is
//   missing. A half ends when it was not refreshed for (K + 1/2) * 1.5 * R, where K is 3 and R what
//   TIME_VALUES says, else 30 s; RESVTEAR ends the RESV half, PATHTEAR both. PATHERR and RESVERR
//   begin and refresh nothing. A RESV of wildcard style is for the paths that its session has.
//
//   Also refreshed is what a MESSAGE_ID stands for (RFC 2961): by an SREFRESH from the neighbour
//   that gave the number, on the same interface, and by an acknowledgement that passes the other
//   way. Who gave it is told by RSVP_HOP, else by the source address; addresses of two families
//   may be of one neighbour, which has the same numbers in both. A number stands for the last
//   message that carried it. Of each half the last numbers of two feeds are known (an interface one
//   way, see below).
//
//   A message may be seen more than once on its way through the node, and the copies differ: each
//   node records itself in the route. So only one feed, an interface one way, tells the details of
//   a half (all but that it is there): the first, but a received one rather than a sent one; when
//   it falls silent for the time above, whichever comes next. Other feeds refresh.
//
//   One message gives events in this order: its session, its path, then entries of the path by
//   their types' numbers, each with the state after the message. What changes nothing gives none.
//   The end of a path gives its operational state, its member entry, its session. Command-line
//   numbers of paths count from 1, in the order in which they began; the number that means "none"
//   is left out.
//
//   Time is the latest that any message had. What runs out before that is told first, at the
//   time when it ran out.
//
// Memory is that of the live state, which is limited. A message takes time in proportion to its
// length, but of wildcard style to the number of its session's paths. For one thread.

#include "packets/RsvpMessage.h"
#include "state/Content.h"
#include "state/Events.h"
#include "state/MessageIds.h"
#include "state/Slots.h"
#include "state/Timers.h"

#include "Rsvp/RsvpSessionId.h"
#include "Rsvp/RsvpSpId.h"
#include "Wirra/IntfId.h"
#include "Wirra/IpGenAddr.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace State {

/// A sound message, and how it passed.
struct Observed {
    Wirra::IntfId interface;
    bool sent = false;       ///< by the node under observation; else received
    Wirra::IpGenAddr source; ///< of the IP packet
    std::int64_t time = 0;   ///< nanoseconds since 1970; 0 or less when unknown
    Packets::Bytes message;  ///< `Verdict::message`; a BUNDLE's content comes message by message
};

class Follower {
  public:
    struct Limits {
        std::uint32_t sessions = 500'000;
        std::uint32_t paths = 1'000'000;
    };

    /// The sink must outlive the follower.
    explicit Follower(Sink& sink)
        : Follower(sink, Limits{}) {}
    Follower(Sink& sink, const Limits& limits)
        : sink_(sink)
        , limits_(limits) {}

    void message(const Observed& seen);

    [[nodiscard]] std::uint32_t sessions() const noexcept { return sessions_.size(); }
    [[nodiscard]] std::uint32_t paths() const noexcept { return paths_.size(); }
    /// How often a PATH or RESV named a new session, or a new path of a known one, that was not
    /// taken for want of room.
    [[nodiscard]] std::uint64_t refusedSessions() const noexcept { return refusedSessions_; }
    [[nodiscard]] std::uint64_t refusedPaths() const noexcept { return refusedPaths_; }
    /// MESSAGE_IDs that stand for something.
    [[nodiscard]] std::uint32_t messageIds() const noexcept { return ids_.size(); }

  private:
    static constexpr std::size_t kIdsOfHalf = 2;

    struct Half {
        /// When it ends, unless it is refreshed.
        [[nodiscard]] std::int64_t end() const {
            return untilByFeed > untilByOthers ? untilByFeed : untilByOthers;
        }

        bool up = false;
        Feed feed; ///< that tells the details
        std::int64_t untilByFeed = 0;
        std::int64_t untilByOthers = 0;
        std::uint64_t bandwidth = 0;
        std::uint64_t message = 0;                                   ///< the last that told it
        std::array<std::uint32_t, kIdsOfHalf> ids{kNoSlot, kNoSlot}; ///< the older first, then none
    };
    enum Which : std::uint8_t {
        byPath = 0,
        byResv = 1,
    };
    struct Path {
        Rsvp::RsvpSpId id;
        PathState state;
        Rsvp::RsvpCliId cliId;
        std::uint64_t rank = 0;
        std::uint32_t session = kNoSlot;
        std::uint32_t previous = kNoSlot; ///< of the session
        std::uint32_t next = kNoSlot;
        std::int64_t timer = 0; ///< when it is due, never after the first end of a half
        std::array<Half, 2> halves;
    };
    struct Session {
        Rsvp::RsvpSessionId id;
        std::uint32_t firstPath = kNoSlot;
    };

    void advance(std::int64_t time);
    void startTimer(std::uint32_t slot);

    void tell(const Observed& seen, Which which);
    void tellHalf(std::uint32_t slot, Which which, const Feed& feed, std::uint64_t bandwidth,
                  const RecordedHop& recorded);
    /// Returns whether the feed is the one that tells the details.
    bool refresh(std::uint32_t slot, Which which, const Feed& feed, std::uint32_t refreshPeriod);

    void remember(const Observed& seen, Which which);
    void rememberFor(Half& half, const IdNode& node);
    void forget(Half& half, std::uint32_t id);
    void refreshById(const Feed& feed, const MessageId& id, const Wirra::IpGenAddr* neighbour);

    [[nodiscard]] std::uint32_t findSession(const Rsvp::RsvpSessionId& id, std::uint32_t hash);
    [[nodiscard]] std::uint32_t findPath(const Rsvp::RsvpSpId& id, std::uint32_t hash);
    template <class Visit>
    void forEachNamed(Visit visit);
    [[nodiscard]] std::uint32_t begin(const Rsvp::RsvpSpId& id, std::uint32_t hash);
    void endHalves(std::uint32_t slot, std::int64_t time, bool ofPath, bool ofResv);
    [[nodiscard]] unsigned endHalf(Half& half, Rsvp::RsvpSpOperState& state);
    void endPath(std::uint32_t slot, std::int64_t time);

    void error(Path& path);
    void report(const Path& path, unsigned changes, std::int64_t time);

    Sink& sink_;
    Limits limits_;
    Content content_;
    Slots<Session> sessions_;
    Slots<Path> paths_;
    MessageIds ids_;
    Timers timers_;
    std::vector<std::uint32_t> told_; // paths, by this message
    std::int64_t now_ = 0;
    std::uint64_t messages_ = 0;
    std::uint64_t begun_ = 0; // paths
    std::uint32_t lastCliId_ = 0;
    std::uint64_t refusedSessions_ = 0;
    std::uint64_t refusedPaths_ = 0;
};

} // namespace State
