#pragma once

// What a sound RSVP message says, as far as soft state is concerned.
//
// Objects come in any order (RFC 2205, section 3.1). Of objects of which a message has one, the
// first that can be read counts. An object that is too short for its kind, or whose C-Type is
// unknown, is passed over; nothing here is an error, and nothing is read outside the message.
//
//     object                            C-Types             from
//     SESSION                           1, 2; 7, 8; 13, 14  RFC 2205; RFC 3209; RFC 4875
//     SENDER_TEMPLATE, FILTER_SPEC      1-3; 7, 8; 12, 13   the same
//     RSVP_HOP, ERROR_SPEC              1 to 4              RFC 2205, RFC 3473
//     TIME_VALUES, STYLE                1                   RFC 2205
//     SENDER_TSPEC, FLOWSPEC            2                   RFC 2210: rate of the token bucket
//     RECORD_ROUTE                      1                   RFC 3209, RFC 3477, RFC 4090
//     MESSAGE_ID, its ACK; its LIST     1; 1 to 5           RFC 2961

#include "Rsvp/RsvpError.h"
#include "Rsvp/RsvpSessionId.h"
#include "Rsvp/RsvpSpId.h"
#include "Wirra/IpGenAddr.h"
#include "packets/Frame.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace State {

/// RFC 2961, section 4.
struct MessageId {
    std::uint8_t flags = 0;  ///< 0x01: an acknowledgement is desired
    std::uint32_t epoch = 0; ///< 24 bits
    std::uint32_t number = 0;
};

struct ErrorSpec {
    Wirra::IpGenAddr node; ///< that detected it
    Rsvp::RsvpError error;
};

/// The first hop of a RECORD_ROUTE object: the node that added to it last.
struct RecordedHop {
    static constexpr std::uint8_t protectionAvailable = 0x01;
    static constexpr std::uint8_t protectionInUse = 0x02;
    static constexpr std::uint8_t bandwidthProtected = 0x04;
    static constexpr std::uint8_t nodeProtected = 0x08;

    [[nodiscard]] bool has(std::uint8_t flag) const noexcept { return (flags & flag) != 0; }

    Wirra::IpGenAddr address; ///< of family 0 when there is none
    std::uint8_t flags = 0;   ///< RFC 4090, section 4.4
};

/// A sender, and what is said of it.
struct Sender {
    /// LSP ID and, of a P2MP LSP, sub-group. These do not tell senders apart when the sender is
    /// one of RFC 2205 or when a tunnel's sender address is not the extended tunnel ID (RFC 3209
    /// wants that only as a rule; detours differ, RFC 4090, section 4.3). Then the sub-group is
    /// the sender's address with number 0. The LSP ID of an RFC 2205 sender is its port; of a flow
    /// label (C-Type 3) it is the lower 16 bits, the upper 8 being the number of the sub-group.
    Rsvp::RsvpSpId path;
    std::uint64_t bandwidth = 0; ///< bits per second; 0 when not said
    RecordedHop recorded;
};

struct Content {
    /// Takes what the message says for all members. Allocates nothing once the vectors have grown
    /// to the longest lists met.
    void read(Packets::Bytes message);

    std::uint8_t type = 0; ///< as in `Packets::Verdict`; 0 when there is no whole header
    std::optional<Rsvp::RsvpSessionId> session;
    /// Of PATH and its kin the sender of the SENDER_TEMPLATE, of RESV and its kin those of the
    /// FILTER_SPECs; none without a session.
    std::vector<Sender> senders;
    /// RESV and its kin: the style is wildcard filter, so that all senders of the session are
    /// meant; `bandwidth` and `recorded` are theirs.
    bool wildcard = false;
    std::uint64_t bandwidth = 0;
    RecordedHop recorded;
    Wirra::IpGenAddr hop;            ///< of RSVP_HOP; family 0 when there is none
    std::uint32_t refreshPeriod = 0; ///< milliseconds; 0 when not said
    std::optional<ErrorSpec> error;
    std::optional<MessageId> messageId;
    std::vector<MessageId> acknowledged; ///< not those refused (MESSAGE_ID_NACK)
    std::vector<MessageId> listed;       ///< by SREFRESH
};

} // namespace State
