#include "packet_size_search.hpp"

namespace openpv {

std::optional<uint32_t> find_largest_passing(packet_size_limits const& limits,
                                             std::function<bool(uint32_t)> const& passes) {
    uint32_t const steps = (limits.maximum - limits.minimum) / limits.increment;
    auto const size_at = [&limits](uint32_t step) { return limits.minimum + step * limits.increment; };
    if (passes(size_at(steps))) {
        return size_at(steps);
    }
    if (!passes(size_at(0))) {
        return std::nullopt;
    }
    uint32_t good = 0;
    uint32_t bad = steps;
    while (bad - good > 1) {
        uint32_t const middle = good + (bad - good) / 2;
        (passes(size_at(middle)) ? good : bad) = middle;
    }
    return size_at(good);
}

}  // namespace openpv
