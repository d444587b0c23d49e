#pragma once

#include "packets/Frame.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string_view>

namespace Packets {

/// The keys under which INTEGRITY objects (RFC 2747) are checked, by their identifiers.
class IntegrityKeys {
  public:
    IntegrityKeys();
    ~IntegrityKeys();
    IntegrityKeys(IntegrityKeys&&) noexcept;
    IntegrityKeys& operator=(IntegrityKeys&&) noexcept;

    /// Adds a key as the user gave it: "ID=TEXT", the identifier up to 48 bits in hexadecimal, the
    /// octets of the text being the key. Anything else, and an identifier that was given before, is
    /// an InputError that says so.
    void add(std::string_view text);

    [[nodiscard]] bool empty() const noexcept { return keys_.empty(); }

    /// Whether the digest of an INTEGRITY object is right, HMAC-MD5 (RFC 2747, section 2, RFC 2104)
    /// over the message with zeros for its checksum and the digest. True for an object whose key is
    /// not among these. `object` lies inside `message`.
    [[nodiscard]] bool accept(Bytes message, Bytes object) const noexcept;

  private:
    struct Key;
    std::map<std::uint64_t, std::unique_ptr<Key>> keys_;
};

} // namespace Packets
