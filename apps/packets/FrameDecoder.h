#pragma once

// From a captured frame to the verdicts on the RSVP messages in it.
//
// Every frame has exactly one outcome:
//
//   accepted    RSVP, and every message in it is sound
//   erroneous   RSVP, and at least one message in it has a defect
//   ignored     not RSVP at the top level (RSVP quoted in ICMP or carried in a tunnel is none), an
//               IP header that cannot be used, or a fragment that completes no packet
//   cut         the capture kept too little of the frame: its IP payload is not whole, or not even
//               its protocol is known. No fault of the protocol, so nothing of it is judged
//
// A fragment that completes a packet has the outcome of the whole packet.
//
// Decoding allocates nothing but, with the first fragment, the memory for all of them; it reads
// nothing outside the captured bytes.

#include "packets/CaptureFile.h"
#include "packets/Frame.h"
#include "packets/Integrity.h"
#include "packets/LinkLayer.h"
#include "packets/Reassembler.h"
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

enum class Location : std::uint8_t {
    found,
    ignored,
    cut,
};

/// Where RSVP was found. The source points into the frame; so does the payload, unless it was put
/// together of fragments: then it is good until the next frame.
struct RsvpPacket {
    FrameSource source;
    Bytes payload; ///< of the IP packet
};

/// Receives what is found: `packet` once for a frame that holds RSVP, then `verdict` for each
/// message in it, at least once. The pointers in FrameSource are good during the call.
template <typename T>
concept VerdictSink = requires(T& sink, const FrameSource& source, const Verdict& verdict) {
    sink.packet(source);
    sink.verdict(verdict);
};

/// Decodes the frames of one capture, in their order.
class FrameDecoder {
  public:
    /// The keys must outlive the decoder.
    explicit FrameDecoder(const IntegrityKeys& keys)
        : keys_(keys) {}

    template <VerdictSink Sink>
    Outcome decode(const CaptureRecord& record, Sink& sink) {
        RsvpPacket packet;
        const Location location = locate(record, packet);
        if (location != Location::found) {
            return location == Location::cut ? Outcome::cut : Outcome::ignored;
        }
        sink.packet(packet.source);
        const bool sound = judgePayload(packet.source.family, packet.payload, keys_,
                                        [&sink](const Verdict& verdict) { sink.verdict(verdict); });
        return sound ? Outcome::accepted : Outcome::erroneous;
    }

    /// The first half of `decode`: finds the RSVP payload; `packet` is set when it returns `found`.
    Location locate(const CaptureRecord& record, RsvpPacket& packet);

  private:
    const IntegrityKeys& keys_;
    Reassembler reassembler_;
};

} // namespace Packets
