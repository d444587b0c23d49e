#include "Wirra/IpGenAddr.h"

#include "Mox/GenericIf.h"

#include <array>

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace Wirra {

namespace {

constexpr std::string_view kNone = "none";
constexpr std::string_view kRawPrefix = "IpGenAddr(0x";
constexpr std::string_view kRawSuffix = ")";
constexpr std::size_t kRawDigits = 2 * sizeof(IpGenAddr);

bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool zeroFrom(const IpGenAddr& address, std::size_t offset) {
    return std::all_of(address.bytes().begin() + static_cast<std::ptrdiff_t>(offset),
                       address.bytes().end(), [](std::uint8_t byte) { return byte == 0; });
}

Mox::String rawText(const IpGenAddr& address) {
    Mox::String text(kRawPrefix);
    for (const std::uint8_t byte : address.bytes()) {
        text += fmt::format("{:02x}", byte);
    }
    text += fmt::format("{:02x}", static_cast<unsigned>(address.family()));
    return text.append(kRawSuffix);
}

Mox::String presentation(int family, const IpGenAddr& address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(family, address.bytes().data(), text.data(), text.size());
    return text.data();
}

[[noreturn]] void refuse(const Mox::CharRange& range) {
    Pello::raise<Mox::RangeException>({"IpGenAddr", "Wirra/IpGenAddr", "sequenceToValue"},
                                      "wanted an IPv4 or IPv6 address or \"none\" at offset {}, "
                                      "found {}",
                                      range.consumed(), range.found());
}

unsigned digitValue(char c) {
    if (c <= '9') return static_cast<unsigned>(c - '0');
    return static_cast<unsigned>((c | 0x20) - 'a') + 10;
}

IpGenAddr readRaw(Mox::CharRange& range) {
    const std::string_view text = range.rest().substr(kRawPrefix.size());
    const std::string_view digits = text.substr(0, kRawDigits);
    if (digits.size() != kRawDigits || !std::all_of(digits.begin(), digits.end(), isHexDigit) ||
        !text.substr(kRawDigits).starts_with(kRawSuffix)) {
        refuse(range);
    }
    std::array<std::uint8_t, sizeof(IpGenAddr)> all{};
    for (std::size_t at = 0; at < all.size(); ++at) {
        all[at] = static_cast<std::uint8_t>(digitValue(digits[2 * at]) << 4U |
                                            digitValue(digits[2 * at + 1]));
    }
    range.consume(kRawPrefix.size() + kRawDigits + kRawSuffix.size());
    std::array<std::uint8_t, 16> bytes{};
    std::copy_n(all.begin(), bytes.size(), bytes.begin());
    return IpGenAddr(bytes, static_cast<AddressFamily>(all.back()));
}

} // namespace

IpGenAddr IpGenAddr::ipv4(std::span<const std::uint8_t, 4> bytes) {
    IpGenAddr address(ipv4AddressFamily);
    std::copy(bytes.begin(), bytes.end(), address.bytes_.begin());
    return address;
}

IpGenAddr IpGenAddr::ipv6(std::span<const std::uint8_t, 16> bytes) {
    IpGenAddr address(ipv6AddressFamily);
    std::copy(bytes.begin(), bytes.end(), address.bytes_.begin());
    return address;
}

Mox::String IpGenAddr::stringValue() const { return valueToStrep(*this); }

Mox::String valueToStrep(const IpGenAddr& address) {
    switch (address.family()) {
    case unknownAddressFamily:
        if (zeroFrom(address, 0)) return Mox::String(kNone);
        break;
    case ipv4AddressFamily:
        if (zeroFrom(address, 4)) return presentation(AF_INET, address);
        break;
    case ipv6AddressFamily:
        return presentation(AF_INET6, address);
    }
    return rawText(address);
}

IpGenAddr sequenceToValue(Mox::CharRange& range, IpGenAddr* /*selector*/) {
    if (range.startsWith(kRawPrefix)) return readRaw(range);
    if (range.peekIdentifier() == kNone) {
        range.consume(kNone.size());
        return IpGenAddr();
    }
    const std::string_view token =
        range.peekWhile([](char c) { return isHexDigit(c) || c == '.' || c == ':'; });
    const bool isIpv6 = token.find(':') != std::string_view::npos;
    std::array<std::uint8_t, 16> bytes{};
    if (inet_pton(isIpv6 ? AF_INET6 : AF_INET, std::string(token).c_str(), bytes.data()) != 1) {
        refuse(range);
    }
    range.consume(token.size());
    return IpGenAddr(bytes, isIpv6 ? ipv6AddressFamily : ipv4AddressFamily);
}

namespace {

constexpr std::array kModuleTypes = {
    Mox::valueType<IpGenAddr, IpGenAddr>({"IpGenAddr", 0}, "Wirra::IpGenAddr"),
};
constexpr Mox::ModuleDescriptor kModule = {"IpGenAddr", kModuleTypes};
const Mox::ModuleRegistration atLoad(kModule);

} // namespace

} // namespace Wirra
