#pragma once

#include "Mox/Strep.h"

#include <compare>
#include <cstdint>
#include <type_traits>

namespace Rsvp {

/// The number by which an operator addresses a state path on the command line.
class RsvpCliId {
  public:
    /// No number given out.
    static constexpr std::uint32_t kNone = 1000000;

    constexpr RsvpCliId() = default;
    constexpr explicit RsvpCliId(std::uint32_t value)
        : value_(value) {}
    explicit RsvpCliId(Mox::CharRange& range);

    constexpr std::uint32_t value() const { return value_; }

    friend constexpr bool operator==(const RsvpCliId&, const RsvpCliId&) = default;
    friend constexpr auto operator<=>(const RsvpCliId&, const RsvpCliId&) = default;

  private:
    std::uint32_t value_ = kNone;
};

static_assert(sizeof(RsvpCliId) == 4 && std::has_unique_object_representations_v<RsvpCliId>);

/// The decimal number.
Mox::String valueToStrep(const RsvpCliId& cliId);

using Mox::operator<<;
using Mox::valueToStrep;

} // namespace Rsvp
