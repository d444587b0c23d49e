#include "packets/RsvpMessage.h"

#include "packets/Checksum.h"

namespace Packets {

namespace {

constexpr std::size_t commonHeaderLength = 8;
constexpr std::size_t checksumOffset = 2;
constexpr std::size_t lengthOffset = 6;
constexpr std::uint8_t rsvpVersion = 1;

constexpr std::size_t objectHeaderLength = 4;
constexpr std::size_t objectClassOffset = 2;
constexpr std::uint8_t integrityClass = 4; // RFC 2747, section 2

constexpr std::uint32_t bit(MessageType type) { return 1U << static_cast<unsigned>(type); }

constexpr std::uint32_t knownTypes =
    bit(MessageType::path) | bit(MessageType::resv) | bit(MessageType::pathErr) |
    bit(MessageType::resvErr) | bit(MessageType::pathTear) | bit(MessageType::resvTear) |
    bit(MessageType::resvConf) | bit(MessageType::bundle) | bit(MessageType::ack) |
    bit(MessageType::srefresh) | bit(MessageType::hello);

[[nodiscard]] constexpr bool isKnown(std::uint8_t type) noexcept {
    return type < 32 && ((knownTypes >> type) & 1U) != 0;
}

[[nodiscard]] constexpr bool isBundle(std::uint8_t type) noexcept {
    return type == static_cast<std::uint8_t>(MessageType::bundle);
}

/// The length of the object that begins at `bytes` (at least 4), 0 when it does not fit there.
[[nodiscard]] std::size_t objectLength(Bytes bytes) noexcept {
    const std::size_t length = readBe16(bytes.data());
    const bool fits = length >= objectHeaderLength && length % 4 == 0 && length <= bytes.size();
    return fits ? length : 0;
}

/// `bytes.size()` is a multiple of 4.
[[nodiscard]] bool objectsFill(Bytes bytes) noexcept {
    while (!bytes.empty()) {
        const std::size_t length = objectLength(bytes);
        if (length == 0) return false;
        bytes = bytes.subspan(length);
    }
    return true;
}

[[nodiscard]] bool isIntegrity(Bytes object) noexcept {
    return object[objectClassOffset] == integrityClass;
}

/// The INTEGRITY object that goes before the messages of a BUNDLE; empty when there is none.
[[nodiscard]] Bytes bundleIntegrity(Bytes body) noexcept {
    if (body.size() < objectHeaderLength || !isIntegrity(body)) return {};
    // The class octet is where a message has the first octet of its checksum. A message of version
    // 1 would be an object of 4096 bytes or more, and no INTEGRITY object comes near that.
    if (body[0] >> 4 != 0) return {};
    return body.first(objectLength(body));
}

/// Whether the keys accept the message's INTEGRITY objects, as far as its objects can be walked.
[[nodiscard]] bool integrityHolds(Bytes message, const IntegrityKeys& keys) noexcept {
    if (keys.empty()) return true;
    Bytes rest = message.subspan(commonHeaderLength);
    if (isBundle(message[1])) return keys.accept(message, bundleIntegrity(rest));
    while (rest.size() >= objectHeaderLength) {
        const std::size_t length = objectLength(rest);
        if (length == 0) break;
        if (isIntegrity(rest) && !keys.accept(message, rest.first(length))) return false;
        rest = rest.subspan(length);
    }
    return true;
}

[[nodiscard]] Judgement judge(Bytes bytes, const IntegrityKeys& keys, bool inBundle) noexcept {
    if (bytes.size() < commonHeaderLength) {
        return {.type = 0, .defect = Defect::format, .extent = 0};
    }
    const std::uint8_t type = bytes[1];
    const std::uint16_t length = readBe16(bytes.data() + lengthOffset);
    Judgement judgement{.type = type, .defect = Defect::format, .extent = 0};
    if (length < commonHeaderLength || length > bytes.size()) return judgement;
    judgement.extent = length;

    if (bytes[0] >> 4 != rsvpVersion || length % 4 != 0 || !isKnown(type)) return judgement;
    if (inBundle && isBundle(type)) return judgement; // RFC 2961, section 3

    const Bytes message = bytes.first(length);
    if (readBe16(message.data() + checksumOffset) != 0 && onesComplementSum(message) != 0xffff) {
        judgement.defect = Defect::checksum;
    } else if (!integrityHolds(message, keys)) {
        judgement.defect = Defect::integrity;
    } else if (!isBundle(type) && !objectsFill(message.subspan(commonHeaderLength))) {
        judgement.defect = Defect::objects;
    } else {
        judgement.defect = Defect::none;
    }
    return judgement;
}

} // namespace

Judgement judgeMessage(Bytes bytes, const IntegrityKeys& keys) noexcept {
    return judge(bytes, keys, false);
}

Judgement judgeBundled(Bytes bytes, const IntegrityKeys& keys) noexcept {
    return judge(bytes, keys, true);
}

Bytes bundleBody(Bytes bundle) noexcept {
    const Bytes body = bundle.subspan(commonHeaderLength);
    return body.subspan(bundleIntegrity(body).size());
}

} // namespace Packets
