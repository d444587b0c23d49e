#include "packets/Reassembler.h"

#include <algorithm>
#include <cstring>

namespace Packets {

namespace {

/// Distance of two times; captures need not be in order.
[[nodiscard]] std::uint64_t apart(std::int64_t a, std::int64_t b) noexcept {
    const auto low = static_cast<std::uint64_t>(std::min(a, b));
    return static_cast<std::uint64_t>(std::max(a, b)) - low;
}

} // namespace

std::optional<Reassembler::Whole> Reassembler::add(Family family, std::uint32_t interface,
                                                   std::int64_t time,
                                                   const NetworkPacket& fragment) {
    if (!datagrams_) {
        datagrams_ = std::make_unique_for_overwrite<std::array<Datagram, maxDatagrams>>();
    }
    Key key;
    const std::size_t addressLength = family == Family::ipv4 ? 4 : 16;
    std::copy_n(fragment.source, addressLength, key.source.begin());
    std::copy_n(fragment.destination, addressLength, key.destination.begin());
    key.identification = fragment.fragment.identification;
    key.interface = interface;
    key.family = family;
    Datagram& datagram = datagramOf(key, time);
    if (datagram.givenUp) return std::nullopt;
    if (!store(datagram, fragment.fragment, fragment.payload)) {
        datagram.givenUp = true;
        return std::nullopt;
    }
    const bool complete =
        datagram.total != 0 && datagram.units == (datagram.total + unit - 1) / unit;
    if (!complete) return std::nullopt;
    datagram.open = false;
    return Whole{datagram.nextHeader, Bytes(datagram.octets).first(datagram.total)};
}

Reassembler::Datagram& Reassembler::datagramOf(const Key& key, std::int64_t time) {
    Datagram* place = nullptr; // for a new one: one that is free, else the oldest
    for (Datagram& datagram : *datagrams_) {
        if (datagram.open && apart(datagram.since, time) > std::uint64_t{lifetime}) {
            datagram.open = false;
        }
        if (datagram.open && datagram.key == key) return datagram;
        const bool better = place == nullptr || (place->open && !datagram.open) ||
                            (place->open && datagram.order < place->order);
        if (better) place = &datagram;
    }
    place->open = true;
    place->givenUp = false;
    place->since = time;
    place->order = ++begun_;
    place->key = key;
    place->total = place->reach = place->units = 0;
    place->received.reset();
    place->begins.reset();
    return *place;
}

/// False when the fragment contradicts what was received.
bool Reassembler::store(Datagram& datagram, const FragmentInfo& info, Bytes octets) {
    const std::size_t begin = info.offset;
    const std::size_t end = begin + octets.size();
    if (octets.empty() || end > maxOctets || (info.more && octets.size() % unit != 0)) return false;
    if (datagram.total != 0 && (end > datagram.total || (!info.more && end != datagram.total))) {
        return false;
    }
    if (!info.more && datagram.reach > end) return false;
    const std::size_t first = begin / unit;
    const std::size_t behind = first + (octets.size() + unit - 1) / unit;
    std::size_t known = 0;
    std::size_t begun = 0;
    for (std::size_t i = first; i < behind; ++i) {
        known += datagram.received.test(i) ? 1U : 0U;
        begun += datagram.begins.test(i) ? 1U : 0U;
    }
    if (known != 0) {
        // The same one once more, or another that overlaps.
        const bool same = known == behind - first && begun == 1 && datagram.begins.test(first) &&
                          datagram.begins.test(behind) == datagram.received.test(behind) &&
                          (datagram.total == end) == !info.more;
        return same &&
               std::memcmp(datagram.octets.data() + begin, octets.data(), octets.size()) == 0;
    }
    for (std::size_t i = first; i < behind; ++i) {
        datagram.received.set(i);
    }
    datagram.begins.set(first);
    std::copy(octets.begin(), octets.end(),
              datagram.octets.begin() + static_cast<std::ptrdiff_t>(begin));
    datagram.units += behind - first;
    datagram.reach = std::max(datagram.reach, end);
    if (begin == 0) datagram.nextHeader = info.nextHeader;
    if (!info.more) datagram.total = end;
    return true;
}

} // namespace Packets
