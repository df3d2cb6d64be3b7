#pragma once
#include <limits>
#include <type_traits>

namespace Vorn::Support::MediaGrabber::Jai {

/// Converts a floating-point number to an integer type, toward zero. What does not fit becomes the nearest value that
/// does, and not-a-number becomes 0: configured and camera-given values may be anything.
template <typename integer, typename floating>
constexpr integer saturating_cast(floating value) {
    static_assert(std::is_integral_v<integer> && std::is_floating_point_v<floating>);
    // The limits are compared as floating-point numbers. The maximum rounds up to the first number that does not fit
    // when the type is wider than the mantissa, so "at least the maximum" saturates in every case.
    if (__builtin_isnan(value)) {
        return 0;
    }
    if (value >= static_cast<floating>(std::numeric_limits<integer>::max())) {
        return std::numeric_limits<integer>::max();
    }
    if (value <= static_cast<floating>(std::numeric_limits<integer>::min())) {
        return std::numeric_limits<integer>::min();
    }
    return static_cast<integer>(value);
}

}  // namespace Vorn::Support::MediaGrabber::Jai
