#include "packets/Integrity.h"

#include "packets/InputError.h"

#include <fmt/format.h>
#include <nettle/hmac.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace Packets {

namespace {

// The object (RFC 2747, section 2): header (4), flags, reserved, key identifier (6), sequence
// number (8), digest.
constexpr std::size_t keyOffset = 6;
constexpr std::size_t keyLength = 6;
constexpr std::size_t digestOffset = 20;
constexpr std::size_t checksumOffset = 2;
constexpr std::size_t checksumLength = 2;

} // namespace

struct IntegrityKeys::Key {
    hmac_md5_ctx context; ///< with the key set; copied for each message
};

IntegrityKeys::IntegrityKeys() = default;
IntegrityKeys::~IntegrityKeys() = default;
IntegrityKeys::IntegrityKeys(IntegrityKeys&&) noexcept = default;
IntegrityKeys& IntegrityKeys::operator=(IntegrityKeys&&) noexcept = default;

void IntegrityKeys::add(std::string_view text) {
    constexpr std::size_t maxDigits = 12;
    const std::size_t sign = text.find('=');
    const std::string_view number = text.substr(0, std::min(sign, text.size()));
    std::uint64_t id = 0;
    const auto [stop, error] =
        std::from_chars(number.data(), number.data() + number.size(), id, 16);
    if (sign == std::string_view::npos || number.empty() || number.size() > maxDigits ||
        error != std::errc{} || stop != number.data() + number.size()) {
        // Nothing of the text is repeated: it may be the secret.
        throw InputError(fmt::format("bad key: wanted ID=TEXT, with an identifier of up to {} "
                                     "hexadecimal digits",
                                     maxDigits));
    }
    auto key = std::make_unique<Key>();
    const std::string_view secret = text.substr(sign + 1);
    hmac_md5_set_key(&key->context, secret.size(),
                     reinterpret_cast<const std::uint8_t*>(secret.data()));
    if (!keys_.emplace(id, std::move(key)).second) {
        throw InputError(fmt::format("key identifier {:x} is given twice", id));
    }
}

bool IntegrityKeys::accept(Bytes message, Bytes object) const noexcept {
    if (object.size() < keyOffset + keyLength) return true; // it names no key
    std::uint64_t id = 0;
    for (const std::uint8_t octet : object.subspan(keyOffset, keyLength)) {
        id = id << 8U | octet;
    }
    const auto key = keys_.find(id);
    if (key == keys_.end()) return true;
    if (object.size() != digestOffset + MD5_DIGEST_SIZE) return false;

    constexpr std::array<std::uint8_t, MD5_DIGEST_SIZE> zeros{};
    hmac_md5_ctx context = key->second->context;
    const auto feed = [&context](Bytes octets) {
        hmac_md5_update(&context, octets.size(), octets.data());
    };
    const Bytes digest = object.subspan(digestOffset);
    const auto digestAt = static_cast<std::size_t>(digest.data() - message.data());
    constexpr std::size_t behindChecksum = checksumOffset + checksumLength;
    feed(message.first(checksumOffset));
    feed(Bytes(zeros).first(checksumLength));
    feed(message.subspan(behindChecksum, digestAt - behindChecksum));
    feed(zeros);
    feed(message.subspan(digestAt + digest.size()));
    std::array<std::uint8_t, MD5_DIGEST_SIZE> computed{};
    hmac_md5_digest(&context, computed.size(), computed.data());
    return std::equal(computed.begin(), computed.end(), digest.begin());
}

} // namespace Packets
