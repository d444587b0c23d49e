#include "state/MessageIds.h"

#include "Orv/HashMix.h"

namespace State {

namespace {

/// Without the neighbour: an acknowledgement does not tell whose number it means.
[[nodiscard]] std::uint32_t hashOf(const Feed& feed, std::uint32_t epoch, std::uint32_t number) {
    const std::uint64_t id = std::uint64_t{epoch} << 32U | number;
    const std::uint64_t way = std::uint64_t{feed.interface.hash()} << 1U | (feed.sent ? 1U : 0U);
    const std::uint64_t mixed =
        Orv::foldedMultiply(id ^ 0x2D358DCCAA6C78A5U, way ^ 0x8BB84B93962EACC9U);
    return static_cast<std::uint32_t>(mixed ^ mixed >> 32U);
}

} // namespace

const MessageIds::Nodes& MessageIds::find(const Feed& feed, const MessageId& id,
                                          const Wirra::IpGenAddr* neighbour) {
    found_.clear();
    nodes_.forEach(hashOf(feed, id.epoch, id.number), [&](std::uint32_t slot, IdNode& node) {
        if (node.number != id.number || node.epoch != id.epoch || !(node.feed == feed)) return;
        if (neighbour == nullptr || node.neighbour == *neighbour ||
            node.neighbour.family() != neighbour->family()) {
            found_.push_back(slot);
        }
    });
    return found_;
}

std::uint32_t MessageIds::add(const IdNode& node) {
    const MessageId id{.epoch = node.epoch, .number = node.number};
    if (find(node.feed, id, nullptr).size() >= kMost) return kNoSlot;
    const std::uint32_t slot = nodes_.add(hashOf(node.feed, node.epoch, node.number));
    nodes_[slot] = node;
    return slot;
}

} // namespace State
