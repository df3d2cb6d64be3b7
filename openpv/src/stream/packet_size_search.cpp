// SPDX-License-Identifier: MIT
#include "stream/packet_size_search.hpp"

namespace openpv {

std::optional<std::uint32_t> find_max_passing(packet_size_limits const& limits,
                                              std::function<bool(std::uint32_t)> const& passes) {
    std::uint32_t const steps = (limits.maximum - limits.minimum) / limits.increment;
    auto const size_at = [&limits](std::uint32_t step) { return limits.minimum + step * limits.increment; };
    if (passes(size_at(steps))) {
        return size_at(steps);
    }
    if (!passes(size_at(0))) {
        return std::nullopt;
    }
    std::uint32_t good = 0;
    std::uint32_t bad = steps;
    while (bad - good > 1) {
        std::uint32_t const middle = good + (bad - good) / 2;
        (passes(size_at(middle)) ? good : bad) = middle;
    }
    return size_at(good);
}

}  // namespace openpv
