#pragma once

// Shared by the tests of values.

#include "Mox/Strep.h"
#include "Rsvp/RsvpSpBwState.h"
#include "Rsvp/RsvpSpId.h"
#include "Wirra/IntfId.h"
#include "Wirra/IpGenAddr.h"

#include <cstdint>
#include <random>
#include <string>

namespace ValueSupport {

inline Wirra::IpGenAddr address(const std::string& text) {
    return Mox::strepToValue<Wirra::IpGenAddr>(text);
}

/// Seeded random values that favour the ends of ranges, where text forms go wrong.
class Random {
  public:
    explicit Random(std::uint64_t seed)
        : engine_(seed) {}

    std::uint64_t below(std::uint64_t limit) { return engine_() % limit; }

    template <class T>
    T number() {
        switch (below(8)) {
        case 0:
            return T{0};
        case 1:
            return static_cast<T>(~T{0});
        case 2:
            return static_cast<T>(below(10));
        default:
            return static_cast<T>(engine_());
        }
    }

    Wirra::IntfId intfId() {
        return below(8) == 0 ? Wirra::IntfId() : Wirra::IntfId(number<std::uint64_t>());
    }

    /// Of every family, with sparse bytes; now and then bytes that no address has.
    Wirra::IpGenAddr ipGenAddr() {
        std::array<std::uint8_t, 16> bytes{};
        for (std::uint8_t& byte : bytes) {
            byte = below(3) == 0 ? number<std::uint8_t>() : std::uint8_t{0};
        }
        switch (below(8)) {
        case 0:
            return Wirra::IpGenAddr();
        case 1:
            return Wirra::IpGenAddr(bytes, static_cast<Wirra::AddressFamily>(below(256)));
        case 2:
        case 3:
        case 4:
            return Wirra::IpGenAddr::ipv4(std::span(bytes).first<4>());
        default:
            return Wirra::IpGenAddr::ipv6(bytes);
        }
    }

    Rsvp::RsvpSessionId sessionId() {
        return {number<std::uint8_t>(), ipGenAddr(), number<std::uint16_t>(), ipGenAddr()};
    }

    Rsvp::P2mpSubGroupId subGroupId() { return {ipGenAddr(), number<std::uint16_t>()}; }

    Rsvp::RsvpSpId spId() {
        if (below(2) == 0) return {sessionId(), number<std::uint32_t>()};
        return {sessionId(), number<std::uint32_t>(), subGroupId()};
    }

    Rsvp::RsvpError error() { return {number<std::uint32_t>(), number<std::uint16_t>()}; }

    Rsvp::RsvpSpBwState bwState() {
        return {static_cast<Rsvp::RsvpSpBwAdmission>(below(6)), error(), number<std::uint64_t>(),
                intfId()};
    }

  private:
    std::mt19937_64 engine_;
};

} // namespace ValueSupport
