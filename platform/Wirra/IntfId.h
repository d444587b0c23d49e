#pragma once

#include "Mox/Strep.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Wirra {

/// Identifies an interface by a number that its owner chose. The number is stored bytewise in
/// files; what it stands for is known to whoever gave it out.
class IntfId {
  public:
    /// No interface.
    IntfId() { handleInitialized(Pello::String()); }
    constexpr explicit IntfId(std::uint64_t raw)
        : raw_(raw) {}

    constexpr std::uint64_t raw() const { return raw_; }

    /// Every bit of the number reaches every bit of the result. Part of key hashes, hence of the
    /// file format: the finaliser of a 64-bit mixer, upper half.
    constexpr std::uint32_t hash() const {
        std::uint64_t mixed = raw_;
        mixed ^= mixed >> 32U;
        mixed *= 0xFF51AFD7ED558CCDU;
        mixed ^= mixed >> 29U;
        mixed *= 0xC4CEB9FE1A85EC53U;
        return static_cast<std::uint32_t>(mixed >> 32U);
    }

    friend constexpr bool operator==(const IntfId&, const IntfId&) = default;
    friend constexpr auto operator<=>(const IntfId&, const IntfId&) = default;

  private:
    /// Where a platform that keeps names beside identifiers hooks in; this one keeps none.
    static void handleInitialized(const Pello::String& /*name*/) {}

    std::uint64_t raw_ = 0x00000000FFFFFFFFU;
};

static_assert(sizeof(IntfId) == 8 && alignof(IntfId) == 8);
static_assert(std::has_unique_object_representations_v<IntfId>);

/// "Intf(0x1f)": the number in hexadecimal.
Mox::String valueToStrep(const IntfId& intfId);
IntfId sequenceToValue(Mox::CharRange& range, IntfId* selector);

using Mox::operator<<;
using Mox::sequenceToValue;
using Mox::valueToStrep;

} // namespace Wirra
