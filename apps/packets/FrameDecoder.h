#pragma once

// From a captured frame to the verdicts on the RSVP messages in it.
//
// Every frame has exactly one outcome:
//
//   accepted    RSVP, and every message in it is sound
//   erroneous   RSVP, and at least one message in it has a defect
//   ignored     not RSVP at the top level (RSVP quoted in ICMP or carried in a tunnel is none), an
//   IP
//               header that cannot be used, or a fragment
//   cut         the capture kept too little of the frame: its IP payload is not whole, or not even
//               its protocol is known. No fault of the protocol, so nothing of it is judged
//
// Decoding allocates nothing, throws nothing itself, and reads nothing outside the captured bytes.

#include "packets/Frame.h"
#include "packets/LinkLayer.h"
#include "packets/RsvpMessage.h"

#include <concepts>
#include <cstdint>

namespace Packets {

enum class Outcome : std::uint8_t {
    accepted,
    erroneous,
    ignored,
    cut,
};

/// Where `locateRsvp` found RSVP. Everything points into the frame.
struct RsvpPacket {
    FrameSource source;
    Bytes payload; ///< the IP payload
};

enum class Location : std::uint8_t {
    found,
    ignored,
    cut,
};

/// Finds the RSVP payload of a frame; `packet` is set when it returns `found` and untouched else.
[[nodiscard]] Location locateRsvp(LinkType type, const Frame& frame, RsvpPacket& packet) noexcept;

/// Receives what `decodeFrame` finds: `packet` once for a frame that holds RSVP, then `verdict` for
/// each message in it, at least once. The pointers in FrameSource are good during the call.
template <typename T>
concept VerdictSink = requires(T& sink, const FrameSource& source, const Verdict& verdict) {
    sink.packet(source);
    sink.verdict(verdict);
};

template <VerdictSink Sink>
Outcome decodeFrame(LinkType type, const Frame& frame, Sink& sink) {
    RsvpPacket packet;
    switch (locateRsvp(type, frame, packet)) {
    case Location::ignored:
        return Outcome::ignored;
    case Location::cut:
        return Outcome::cut;
    case Location::found:
        break;
    }
    sink.packet(packet.source);
    const bool sound = judgePayload(packet.source.family, packet.payload,
                                    [&sink](const Verdict& verdict) { sink.verdict(verdict); });
    return sound ? Outcome::accepted : Outcome::erroneous;
}

} // namespace Packets
