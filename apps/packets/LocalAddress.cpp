#include "packets/LocalAddress.h"

#include "packets/InputError.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <string>

namespace Packets {

namespace {

constexpr std::size_t macLength = 6;

/// One to six octets "hh:hh:..." into `octets`; how many, or nothing when the text is none of that.
[[nodiscard]] std::optional<std::uint8_t> parseMac(std::string_view text,
                                                   std::span<std::uint8_t> octets) {
    std::uint8_t count = 0;
    while (count < macLength) {
        if (text.size() < 2) return std::nullopt;
        const char* end = text.data() + 2;
        const auto [stop, error] = std::from_chars(text.data(), end, octets[count], 16);
        if (error != std::errc{} || stop != end) return std::nullopt;
        ++count;
        text.remove_prefix(2);
        if (text.empty()) return count;
        if (text.front() != ':') return std::nullopt;
        text.remove_prefix(1);
    }
    return std::nullopt;
}

} // namespace

LocalAddress::LocalAddress(std::string_view text) {
    const std::string terminated(text);
    // inet_pton stops at a NUL, so text with one inside would pass for its first part.
    const bool plain = text.find('\0') == std::string_view::npos;
    if (plain && inet_pton(AF_INET, terminated.c_str(), octets_.data()) == 1) {
        kind_ = Kind::ipv4;
        length_ = 4;
    } else if (plain && inet_pton(AF_INET6, terminated.c_str(), octets_.data()) == 1) {
        kind_ = Kind::ipv6;
        length_ = 16;
    } else if (const auto octets = parseMac(text, octets_)) {
        kind_ = Kind::mac;
        length_ = *octets;
    } else {
        throw InputError(
            fmt::format("bad local address '{}': wanted an IPv4 or IPv6 address, a MAC "
                        "address, or its first octets such as 02:00:5e:10:00",
                        text));
    }
}

bool LocalAddress::matches(const FrameSource& source) const noexcept {
    const std::uint8_t* candidate = nullptr;
    switch (kind_) {
    case Kind::ipv4:
        candidate = source.family == Family::ipv4 ? source.address : nullptr;
        break;
    case Kind::ipv6:
        candidate = source.family == Family::ipv6 ? source.address : nullptr;
        break;
    case Kind::mac:
        candidate = source.mac;
        break;
    }
    return candidate != nullptr && std::memcmp(candidate, octets_.data(), length_) == 0;
}

Direction directionOf(const FrameSource& source, std::span<const LocalAddress> locals) noexcept {
    if (source.direction != Direction::unknown) return source.direction;
    const bool ours = std::any_of(locals.begin(), locals.end(),
                                  [&source](const auto& local) { return local.matches(source); });
    return ours ? Direction::sent : Direction::received;
}

} // namespace Packets
