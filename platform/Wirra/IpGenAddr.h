#pragma once

#include "Mox/Strep.h"
#include "Wirra/AddressFamily.h"

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace Wirra {

/// An IPv4 or IPv6 address, or no address (family 0). Stored bytewise in files:
///
///     offset  size  field
///          0    16  address in network byte order; IPv4 in the first four, the rest zero
///         16     1  family
///
/// Equality and order take all 17 bytes; the order is by family, then by address.
class IpGenAddr {
  public:
    constexpr IpGenAddr() = default;
    /// The all-zero address of a family.
    constexpr explicit IpGenAddr(AddressFamily family)
        : family_(family) {}

    static IpGenAddr ipv4(std::span<const std::uint8_t, 4> bytes);
    static IpGenAddr ipv6(std::span<const std::uint8_t, 16> bytes);
    /// From all 17 bytes, whatever they are.
    constexpr IpGenAddr(const std::array<std::uint8_t, 16>& bytes, AddressFamily family)
        : bytes_(bytes)
        , family_(family) {}

    constexpr AddressFamily family() const { return family_; }
    constexpr const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

    /// The text form.
    Mox::String stringValue() const;

    friend constexpr bool operator==(const IpGenAddr&, const IpGenAddr&) = default;
    friend constexpr std::strong_ordering operator<=>(const IpGenAddr& left,
                                                      const IpGenAddr& right) {
        if (const auto order = left.family_ <=> right.family_; order != 0) return order;
        return left.bytes_ <=> right.bytes_;
    }

  private:
    std::array<std::uint8_t, 16> bytes_{};
    AddressFamily family_ = unknownAddressFamily;
};

static_assert(sizeof(IpGenAddr) == 17 && alignof(IpGenAddr) == 1);
static_assert(std::is_trivially_copyable_v<IpGenAddr>);
static_assert(std::has_unique_object_representations_v<IpGenAddr>);

/// "10.0.0.1", "2001:db8::1", "none" for family 0; bytes that none of these can express print as
/// "IpGenAddr(0x" + 34 hexadecimal digits + ")". The reader takes any spelling of an address.
Mox::String valueToStrep(const IpGenAddr& address);
IpGenAddr sequenceToValue(Mox::CharRange& range, IpGenAddr* selector);

using Mox::operator<<;
using Mox::sequenceToValue;
using Mox::valueToStrep;

} // namespace Wirra
