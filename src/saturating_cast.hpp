// SPDX-License-Identifier: MIT
#pragma once
#include <algorithm>
#include <limits>
#include <type_traits>

namespace Vorn::Support::MediaGrabber::Jai {

/// Converts a floating-point number to an integer type, rounding toward zero, or to a narrower floating-point type. Use
/// it for each number from the configuration or the camera. Such a number may be anything, and the plain conversion of
/// a number that does not fit is undefined. \param value any number, infinity or not-a-number \return the number; if
/// `value` is out of range, the nearest finite one that fits. Not-a-number becomes the integer 0
///         and stays not-a-number in a floating-point type.
template <typename number, typename floating>
constexpr number saturating_cast(floating value) {
    static_assert(std::is_arithmetic_v<number> && std::is_floating_point_v<floating>);
    constexpr auto lowest = std::numeric_limits<number>::lowest();
    constexpr auto highest = std::numeric_limits<number>::max();
    if constexpr (std::is_floating_point_v<number>) {
        return static_cast<number>(std::clamp(value, floating{lowest}, floating{highest}));
    }
    // If the integer type is wider than the mantissa, its maximum rounds up to the first number that does not fit.
    // Therefore >= and not >.
    if (__builtin_isnan(value)) {
        return 0;
    }
    if (value >= static_cast<floating>(highest)) {
        return highest;
    }
    if (value <= static_cast<floating>(lowest)) {
        return lowest;
    }
    return static_cast<number>(value);
}

}  // namespace Vorn::Support::MediaGrabber::Jai
