#include "light_meter.hpp"

#include <algorithm>
#include <numeric>

namespace camsim {

namespace {

/// Pairs of lines that are measured, at most; spread over the picture they tell its mean well and cost little.
constexpr std::uint32_t most_pairs = 64;

struct lines_and_columns {
    std::uint32_t first_line;
    std::uint32_t lines;
    std::uint32_t first_column;
    std::uint32_t columns;
};

/// Half the width and half the height, rounded so that a mosaic's cells stay whole.
lines_and_columns middle_of(region const& area) {
    return {area.height / 4 / 2 * 2, area.height / 2 / 2 * 2, area.width / 4 / 2 * 2, area.width / 2 / 2 * 2};
}

}  // namespace

/// \param middle_only only the middle half of the width and height counts
/// \return the mean of the 12-bit values, 0 to 4095
double light_meter::mean(frame_settings const& frame, bool middle_only) {
    renderer_.prepare(frame);
    lines_and_columns const measured =
        middle_only ? middle_of(frame.area) : lines_and_columns{0, frame.area.height, 0, frame.area.width};
    std::uint32_t const all_pairs = measured.lines / 2;
    std::uint32_t const pairs = std::min(all_pairs, most_pairs);
    std::uint64_t sum = 0;
    for (std::uint32_t pair = 0; pair < pairs; ++pair) {
        // The middle of the pair's share of the picture; two lines, so that a mosaic's colours count alike.
        std::uint32_t const line = measured.first_line + (2 * pair + 1) * all_pairs / (2 * pairs) * 2;
        for (std::uint32_t const one : {line, line + 1}) {
            auto const values = renderer_.line_values(one).subspan(measured.first_column, measured.columns);
            sum = std::accumulate(values.begin(), values.end(), sum);
        }
    }
    return static_cast<double>(sum) / (2.0 * pairs * measured.columns);
}

}  // namespace camsim
