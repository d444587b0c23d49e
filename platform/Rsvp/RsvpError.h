#pragma once

#include "Mox/Strep.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Rsvp {

/// The error of an ERROR_SPEC object (RFC 2205, appendix B). Stored bytewise in files:
///
///     offset  size  field
///          0     4  errorCode; 256, one beyond the 8 bits of the wire, is no error
///          4     2  errorValue
///          6     2  padding, zero
class RsvpError {
  public:
    static constexpr std::uint32_t kNoError = 256;

    constexpr RsvpError() = default;
    constexpr RsvpError(std::uint32_t errorCode, std::uint16_t errorValue)
        : errorCode_(errorCode)
        , errorValue_(errorValue) {}
    explicit RsvpError(Mox::CharRange& range);

    constexpr std::uint32_t errorCode() const { return errorCode_; }
    constexpr std::uint16_t errorValue() const { return errorValue_; }

    friend constexpr bool operator==(const RsvpError& left, const RsvpError& right) {
        return left.errorCode_ == right.errorCode_ && left.errorValue_ == right.errorValue_;
    }

  private:
    static void layout() {
        static_assert(offsetof(RsvpError, errorCode_) == 0);
        static_assert(offsetof(RsvpError, errorValue_) == 4);
        static_assert(offsetof(RsvpError, pad_) == 6);
    }

    std::uint32_t errorCode_ = kNoError;
    std::uint16_t errorValue_ = 0;
    [[maybe_unused]] std::uint16_t pad_ = 0;
};

static_assert(sizeof(RsvpError) == 8 && alignof(RsvpError) == 4);
static_assert(std::has_unique_object_representations_v<RsvpError>);

Mox::String valueToStrep(const RsvpError& error);

using Mox::operator<<;
using Mox::valueToStrep;

} // namespace Rsvp
