#pragma once

// The value of the error counter tables and its key. Both are stored bytewise in files.

#include "Mox/Hash.h"
#include "Mox/Strep.h"
#include "Rsvp/RsvpErrorType.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Rsvp::Vesk {

/// A kind of error, one byte. There is one counter per kind, whatever the interface.
class ErrorCounterKey {
  public:
    constexpr ErrorCounterKey() = default;
    constexpr explicit ErrorCounterKey(RsvpErrorType errorType)
        : errorType_(errorType) {}
    /// Reads the text form; `Mox::RangeException` names the attribute.
    explicit ErrorCounterKey(Mox::CharRange& range);

    constexpr RsvpErrorType errorType() const { return errorType_; }

    std::uint32_t hash(std::uint32_t seed) const {
        return Mox::hashSingleAttr<unsigned char>(seed, errorType_);
    }

    friend constexpr bool operator==(const ErrorCounterKey&, const ErrorCounterKey&) = default;
    /// By number of the kind.
    friend constexpr bool operator<(const ErrorCounterKey& left, const ErrorCounterKey& right) {
        return left.errorType_ < right.errorType_;
    }

  private:
    RsvpErrorType errorType_ = unknownErrorType;
};

static_assert(sizeof(ErrorCounterKey) == 1);
static_assert(std::is_trivially_copyable_v<ErrorCounterKey>);
static_assert(std::has_unique_object_representations_v<ErrorCounterKey>);

/// The errors of one kind:
///
///     offset  size  field
///          0     1  key
///          1     3  padding, zero
///          4     4  count
class ErrorCounter {
  public:
    constexpr ErrorCounter() = default;
    constexpr ErrorCounter(const ErrorCounterKey& key, std::uint32_t count)
        : key_(key)
        , count_(count) {}
    /// Reads the text form; `Mox::RangeException` names the attribute.
    explicit ErrorCounter(Mox::CharRange& range);

    constexpr const ErrorCounterKey& key() const { return key_; }
    constexpr std::uint32_t count() const { return count_; }
    constexpr void countIs(std::uint32_t count) & { count_ = count; }
    /// Modulo 2^32.
    constexpr void countInc(std::uint32_t n) & { count_ += n; }

    /// "[errorType]count"
    Mox::String veskString() const;

    friend constexpr bool operator==(const ErrorCounter& left, const ErrorCounter& right) {
        return left.key_ == right.key_ && left.count_ == right.count_;
    }

  private:
    static void layout() {
        static_assert(offsetof(ErrorCounter, key_) == 0);
        static_assert(offsetof(ErrorCounter, pad_) == 1 && sizeof(pad_) == 3);
        static_assert(offsetof(ErrorCounter, count_) == 4);
    }

    ErrorCounterKey key_;
    [[maybe_unused]] std::array<std::uint8_t, 3> pad_{};
    std::uint32_t count_ = 0;
};

static_assert(sizeof(ErrorCounter) == 8 && alignof(ErrorCounter) == 4);
static_assert(std::is_trivially_copyable_v<ErrorCounter>);
static_assert(std::has_unique_object_representations_v<ErrorCounter>);

Mox::String valueToStrep(const ErrorCounterKey& key);
Mox::String valueToStrep(const ErrorCounter& counter);

using Mox::operator<<;
using Mox::valueToStrep;

} // namespace Rsvp::Vesk
