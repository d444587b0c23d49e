#pragma once

#include <compare>
#include <ostream>

namespace Mox {

/// A time in seconds. Its own type, so that a time is never taken for another number; it compares
/// like a double, a NaN being unequal to everything.
class Seconds {
  public:
    constexpr Seconds() = default;
    constexpr explicit Seconds(double value)
        : value_(value) {}

    constexpr double value() const { return value_; }

    friend constexpr bool operator==(const Seconds&, const Seconds&) = default;
    friend constexpr auto operator<=>(const Seconds&, const Seconds&) = default;

  private:
    double value_ = 0.0;
};

/// Writes the double in the stream's own format; `valueToStrep` is the exact text.
inline std::ostream& operator<<(std::ostream& stream, const Seconds& seconds) {
    return stream << seconds.value();
}

} // namespace Mox
