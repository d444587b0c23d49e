#include "Tables.h"

namespace TestSupport {

namespace {

Wirra::IpGenAddr address(std::uint32_t number) {
    std::array<std::uint8_t, 16> bytes{};
    for (unsigned i = 0; i < 4; ++i) {
        bytes[i] = static_cast<std::uint8_t>(number >> (24U - 8U * i));
    }
    return Wirra::IpGenAddr(bytes, Wirra::ipv4AddressFamily);
}

} // namespace

Rsvp::RsvpSessionId sessionIdOf(std::uint32_t number) {
    return Rsvp::RsvpSessionId(7, address(0x0A000000U + number / 16),
                               static_cast<std::uint16_t>(number % 16), address(0x0A800000U));
}

Rsvp::RsvpSpId spIdOf(std::uint32_t number) {
    // Every third path has a sub-group: the presence flag changes from slot to slot.
    if (number % 3 == 0) {
        return Rsvp::RsvpSpId(sessionIdOf(number), number,
                              Rsvp::P2mpSubGroupId(address(number), 1));
    }
    return Rsvp::RsvpSpId(sessionIdOf(number), number);
}

} // namespace TestSupport
