#pragma once

// Judges RSVP messages: which are sound, and what is wrong with the others.
//
// The common header (RFC 2205, section 3.1.1):
//
//     0       4       8               16                              32
//     | Vers  | Flags |   Msg Type    |         RSVP Checksum         |
//     |   Send_TTL    |   (reserved)  |         RSVP Length           |
//
// A message is checked in this order; the first check that fails is its defect, and no later one
// adds another:
//
//   format     at least 8 bytes are there; version 1; a length of at least 8, a multiple of 4 and
//              within what is there (bytes after it are ignored); one of the eleven types below
//   checksum   the field is zero, which means "none sent", or right
//   integrity  the digest of every INTEGRITY object (RFC 2747) that names a known key is right.
//              Without one, or with another key, there is nothing to check; nor are sequence
//              numbers
//   objects    the objects (RFC 2205, section 3.1.2) fill the message exactly: every length at
//              least 4, a multiple of 4 and inside the message. What stands inside an object is
//              not judged
//
// A BUNDLE (RFC 2961, section 3) has messages for a body, so the objects check is not for it; the
// messages inside are judged as if each had come alone. One whose header is incomplete, or whose
// length is below 8 or beyond the bundle, is a format error and ends the bundle, since nobody knows
// where the next begins. A BUNDLE inside a BUNDLE is a format error; it is stepped over, unopened.

#include "packets/Frame.h"
#include "packets/Integrity.h"

#include <cstdint>

namespace Packets {

/// The messages that are counted, by their number on the wire (RFC 2205, RFC 2961, RFC 3209).
enum class MessageType : std::uint8_t {
    path = 1,
    resv = 2,
    pathErr = 3,
    resvErr = 4,
    pathTear = 5,
    resvTear = 6,
    resvConf = 7,
    bundle = 12,
    ack = 13,
    srefresh = 15,
    hello = 20,
};

/// The first check that a message failed.
enum class Defect : std::uint8_t {
    none,
    format,
    checksum,
    integrity, ///< the digest of an INTEGRITY object (RFC 2747) is wrong
    objects,
};

/// One message as found in a packet.
struct Verdict {
    Family family = Family::ipv4; ///< of the IP header that carried it
    std::uint8_t type = 0;        ///< on the wire, known or not; 0 when the header is incomplete
    Defect defect = Defect::none;
    Bytes message; ///< from its header to its last object; empty when it has a defect
};

/// The judgement of one message, apart from the packet that carried it.
struct Judgement {
    std::uint8_t type = 0; ///< as in `Verdict`
    Defect defect = Defect::none;
    /// The message's length; 0 when its length field cannot be used to find what comes after it.
    std::uint16_t extent = 0;
};

/// Judges the message that begins at `bytes`, which end where the packet or the bundle ends.
[[nodiscard]] Judgement judgeMessage(Bytes bytes, const IntegrityKeys& keys) noexcept;

/// As `judgeMessage`, for a message inside a BUNDLE.
[[nodiscard]] Judgement judgeBundled(Bytes bytes, const IntegrityKeys& keys) noexcept;

/// What a sound BUNDLE holds: the messages after its header and, where there is one, after the
/// INTEGRITY object that goes before them (RFC 2961, section 3).
[[nodiscard]] Bytes bundleBody(Bytes bundle) noexcept;

/// Judges all messages of one IP payload, in the order in which they stand, a BUNDLE before its
/// content, and calls `onVerdict(const Verdict&)` for each, at least once. Returns true when none
/// has a defect. Allocates nothing; every turn of the loop consumes at least 8 bytes.
template <typename OnVerdict>
bool judgePayload(Family family, Bytes payload, const IntegrityKeys& keys, OnVerdict&& onVerdict) {
    const auto tell = [&](const Judgement& judgement, Bytes bytes) {
        const bool sound = judgement.defect == Defect::none;
        onVerdict(Verdict{.family = family,
                          .type = judgement.type,
                          .defect = judgement.defect,
                          .message = sound ? bytes.first(judgement.extent) : Bytes()});
    };
    const Judgement outer = judgeMessage(payload, keys);
    tell(outer, payload);
    if (outer.defect != Defect::none) return false;
    if (outer.type != static_cast<std::uint8_t>(MessageType::bundle)) return true;

    bool sound = true;
    Bytes rest = bundleBody(payload.first(outer.extent));
    while (!rest.empty()) {
        const Judgement inner = judgeBundled(rest, keys);
        tell(inner, rest);
        sound = sound && inner.defect == Defect::none;
        if (inner.extent == 0) break;
        rest = rest.subspan(inner.extent);
    }
    return sound;
}

} // namespace Packets
