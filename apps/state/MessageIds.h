#pragma once

#include "state/Content.h"
#include "state/Slots.h"

#include "Wirra/IntfId.h"
#include "Wirra/IpGenAddr.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace State {

/// Where messages pass: an interface, one way.
struct Feed {
    Wirra::IntfId interface;
    bool sent = false; ///< by the node under observation

    friend bool operator==(const Feed&, const Feed&) = default;
};

/// Half of a state path: what its PATH or its RESV told. Numbered 2 * slot of the path + 0 or 1.
using HalfNumber = std::uint32_t;

/// A message that told halves, by the MESSAGE_ID that it carried (RFC 2961).
struct IdNode {
    Feed feed;
    Wirra::IpGenAddr neighbour; ///< who gave the number: RSVP_HOP, or the source address
    std::uint32_t epoch = 0;
    std::uint32_t number = 0;
    std::uint32_t refreshPeriod = 0; ///< that the message gave, milliseconds
    HalfNumber half = 0;
};

/// Which halves a MESSAGE_ID stands for. A node for each half and number.
class MessageIds {
  public:
    /// Nodes of one epoch, number and feed; further ones are not taken, so that no number can
    /// make others work without end.
    static constexpr std::size_t kMost = 64;

    using Nodes = std::vector<std::uint32_t>; ///< slots

    [[nodiscard]] IdNode& operator[](std::uint32_t slot) { return nodes_[slot]; }

    /// The nodes of a number that `neighbour`, or one with an address of another family, gave; of
    /// all neighbours when it is null. Good until the next call.
    [[nodiscard]] const Nodes& find(const Feed& feed, const MessageId& id,
                                    const Wirra::IpGenAddr* neighbour);
    /// kNoSlot when there are `kMost` of them.
    [[nodiscard]] std::uint32_t add(const IdNode& node);
    void remove(std::uint32_t slot) { nodes_.remove(slot); }

    [[nodiscard]] std::uint32_t size() const noexcept { return nodes_.size(); }

  private:
    Slots<IdNode> nodes_;
    Nodes found_;
};

} // namespace State
