#pragma once

// Puts IP fragments together (RFC 791, section 3.2; RFC 8200, section 4.5).
//
// Memory and time are bounded, whatever a capture holds: at most `maxDatagrams` datagrams are open
// at once, a new one takes the place of the oldest, and one that is not complete after
// `lifetime` of capture time is given up. Fragments may come in any order, and the same one more
// than once. A datagram whose fragments overlap in any other way, or contradict each other about
// its end, is given up, and so is what else comes of it (RFC 5722; the same for IPv4).

#include "packets/Frame.h"
#include "packets/NetworkLayer.h"

#include <array>
#include <bitset>
#include <cstdint>
#include <memory>
#include <optional>

namespace Packets {

class Reassembler {
  public:
    static constexpr std::size_t maxDatagrams = 128;
    static constexpr std::int64_t lifetime = 60'000'000'000; ///< nanoseconds; RFC 8200, section 4.5

    struct Whole {
        std::uint8_t nextHeader; ///< of the first fragment
        Bytes octets;            ///< good until the next call
    };

    /// Takes a fragment that was captured at `time` (nanoseconds) on an interface, and returns the
    /// datagram that it completes. The first call allocates all memory that there will be.
    std::optional<Whole> add(Family family, std::uint32_t interface, std::int64_t time,
                             const NetworkPacket& fragment);

  private:
    static constexpr std::size_t maxOctets = 65535;
    static constexpr std::size_t unit = 8; ///< fragments begin at multiples of it

    struct Key {
        std::array<std::uint8_t, 16> source{};
        std::array<std::uint8_t, 16> destination{};
        std::uint32_t identification = 0;
        std::uint32_t interface = 0;
        Family family = Family::ipv4;

        friend bool operator==(const Key&, const Key&) = default;
    };

    using Bits = std::bitset<maxOctets / unit + 2>;

    struct Datagram {
        bool open = false;
        bool givenUp = false; ///< swallows what else comes
        std::uint8_t nextHeader = 0;
        std::int64_t since = 0;  ///< time of the first fragment
        std::uint64_t order = 0; ///< in which the open ones began
        Key key;
        std::size_t total = 0; ///< octets; 0 while the last fragment is missing
        std::size_t reach = 0; ///< the end of what was received
        std::size_t units = 0; ///< received
        Bits received;         ///< units
        Bits begins;           ///< units with which a fragment begins
        std::array<std::uint8_t, maxOctets> octets; // pages are touched when they are used
    };

    Datagram& datagramOf(const Key& key, std::int64_t time);
    static bool store(Datagram& datagram, const FragmentInfo& info, Bytes octets);

    std::unique_ptr<std::array<Datagram, maxDatagrams>> datagrams_;
    std::uint64_t begun_ = 0;
};

} // namespace Packets
