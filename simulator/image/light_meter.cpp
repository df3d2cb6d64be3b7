// SPDX-License-Identifier: MIT
#include "image/light_meter.hpp"

#include <algorithm>
#include <numeric>

namespace camsim {

namespace {

/// Limits the cost of a measurement. Pairs of lines spread over the image give its mean well enough: the chart's bands
/// are 32 lines high.
constexpr std::uint32_t max_pairs = 64;

struct lines_and_columns {
    std::uint32_t first_line;
    std::uint32_t lines;
    std::uint32_t first_column;
    std::uint32_t columns;
};

/// Half of the width and height, rounded to complete cells of a Bayer pattern.
lines_and_columns centre_of(region const& area) {
    return {area.height / 4 / 2 * 2, area.height / 2 / 2 * 2, area.width / 4 / 2 * 2, area.width / 2 / 2 * 2};
}

}  // namespace

double light_meter::mean(frame_settings const& frame, bool centre_only) {
    renderer_.prepare(frame);
    lines_and_columns const measured =
        centre_only ? centre_of(frame.area) : lines_and_columns{0, frame.area.height, 0, frame.area.width};
    std::uint32_t const all_pairs = measured.lines / 2;
    std::uint32_t const pairs = std::min(all_pairs, max_pairs);
    std::uint64_t sum = 0;
    for (std::uint32_t pair = 0; pair < pairs; ++pair) {
        // The middle of the pair's part of the image. Two lines, so that all colours of a Bayer pattern count.
        std::uint32_t const line = measured.first_line + (2 * pair + 1) * all_pairs / (2 * pairs) * 2;
        for (std::uint32_t const one : {line, line + 1}) {
            auto const values = renderer_.line_values(one).subspan(measured.first_column, measured.columns);
            sum = std::accumulate(values.begin(), values.end(), sum);
        }
    }
    return static_cast<double>(sum) / (2.0 * pairs * measured.columns);
}

}  // namespace camsim
