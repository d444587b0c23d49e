#pragma once

#include "Rsvp/RsvpCliId.h"
#include "Rsvp/RsvpError.h"
#include "Rsvp/RsvpHistoryTypes.h"
#include "Rsvp/RsvpSessionId.h"
#include "Rsvp/RsvpSpBwState.h"
#include "Rsvp/RsvpSpId.h"
#include "Rsvp/RsvpSpOperState.h"
#include "Wirra/IpGenAddr.h"

#include <cstdint>

namespace State {

/// A session began or ended (creation entry), or a sender of it did (member entry).
struct SessionEvent {
    Rsvp::RsvpSessionId session;
    std::int64_t time = 0; ///< nanoseconds since 1970
    Rsvp::RsvpSessionHistoryEntryType type = Rsvp::rsvpSessionUnknownEntry;
    Rsvp::RsvpCliId spCliId; ///< of the member; none in a creation entry
    bool created = false;    ///< began; else ended
};

/// What is known of a state path.
struct PathState {
    Rsvp::RsvpSpOperState spOperPathState = Rsvp::rsvpSpUnknownOperState;
    Rsvp::RsvpSpOperState spOperResvState = Rsvp::rsvpSpUnknownOperState;
    /// Protection of the link or node behind `bypassNextHop`, as the RECORD_ROUTE of the RESV
    /// tells (RFC 4090, section 4.4). The address is none when there is no protection.
    bool bypassAvailable = false;
    Wirra::IpGenAddr bypassNextHop;
    bool bypassNodeProtected = false;
    /// Protection in use, as the RESV tells of what is downstream; likewise.
    bool dsFrrInUse = false;
    Wirra::IpGenAddr dsNextHop;
    bool dsNodeProtected = false;
    /// Protection in use, as the RECORD_ROUTE of the PATH tells of what is upstream.
    bool usFrrInUse = false;
    Rsvp::RsvpError error; ///< the last of a PATHERR or RESVERR
    Rsvp::RsvpSpBwState bwState;

    friend bool operator==(const PathState&, const PathState&) = default;
};

/// Something of a state path changed: what, and all that is known now.
struct PathEvent {
    Rsvp::RsvpSpId path;
    std::int64_t time = 0; ///< nanoseconds since 1970
    Rsvp::RsvpSpHistoryEntryType type = Rsvp::rsvpSpUnknownEntry;
    PathState state;
};

/// Hears the events in the order of their times. It must not call the follower.
class Sink {
  public:
    Sink() = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    virtual ~Sink() = default;

    virtual void session(const SessionEvent& event) = 0;
    virtual void path(const PathEvent& event) = 0;
};

} // namespace State
