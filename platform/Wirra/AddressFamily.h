#pragma once

#include "Mox/Strep.h"

#include <cstdint>

namespace Wirra {

/// Other numbers are kept as they are and taken for IPv6 by whoever asks "IPv4 or not".
enum AddressFamily : std::uint8_t {
    unknownAddressFamily = 0,
    ipv4AddressFamily = 1,
    ipv6AddressFamily = 2,
};

/// Registered as type 0 of the module AddressFamily.
Mox::MoxTypeBase moxType(AddressFamily);

using Mox::operator<<;
using Mox::sequenceToValue;
using Mox::stringValue;
using Mox::valueToStrep;

} // namespace Wirra
