// SPDX-License-Identifier: MIT
#include "lut/equalised_lut.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "frames/frame_pixels.hpp"

namespace mediagrabber {

namespace {

/// The steps of a LUT from each entry to the next, as fractions of its total rise, and the range that is equalised.
struct table_steps {
    std::vector<double> shares;
    std::size_t first = 0;  ///< step
    std::size_t end = 0;    ///< one past the last
};

/// A histogram with `entries` bins.
std::vector<double> occurrences(std::span<std::uint32_t const> cumulative, std::size_t entries) {
    std::vector<double> counts(entries, 0.0);
    std::uint32_t before = 0;
    for (std::size_t v = 0; v < cumulative.size(); ++v) {
        // If the histogram is finer than the LUT, neighbouring values share a bin.
        std::size_t const entry = v * entries / cumulative.size();
        counts[entry] += static_cast<double>(cumulative[v] - before);
        before = cumulative[v];
    }
    return counts;
}

/// Step i has the fraction of the pixels whose value is i + 1. Steps below the black and above the white percentile are
/// zero.
table_steps steps_of(std::vector<double> const& counts, equalisation_limits const& limits) {
    double const total = std::accumulate(counts.begin(), counts.end(), 0.0);
    std::size_t black = 0;
    std::size_t white = counts.size() - 1;
    double below = counts[0];
    while (black < white && below <= limits.black_share * total) {
        below += counts[++black];
    }
    double above = counts[white];
    while (white > black && above <= (1.0 - limits.white_share) * total) {
        above += counts[--white];
    }
    table_steps steps{.shares = std::vector<double>(counts.size() - 1, 0.0), .first = black, .end = white};
    double const between = std::accumulate(counts.begin() + static_cast<std::ptrdiff_t>(black) + 1,
                                           counts.begin() + static_cast<std::ptrdiff_t>(white) + 1, 0.0);
    for (std::size_t i = black; i < white && between > 0.0; ++i) {
        steps.shares[i] = counts[i + 1] / between;
    }
    return steps;
}

/// Clips shares at `level` and distributes the clipped part evenly. \return the maximum share after that
double max_after_clipping(std::span<double const> shares, double level) {
    double kept = 0.0;
    for (double const share : shares) {
        kept += std::min(share, level);
    }
    return level + (1.0 - kept) / static_cast<double>(shares.size());
}

/// The level at which the maximum share becomes `max_share`. Found by bisection, because the maximum share increases
/// with the level.
double clipping_level(std::span<double const> shares, double max_share) {
    constexpr int halvings = 50;  ///< beyond the precision of a double
    double low = 0.0;
    double high = max_share;
    for (int i = 0; i < halvings; ++i) {
        double const middle = (low + high) / 2.0;
        (max_after_clipping(shares, middle) > max_share ? high : low) = middle;
    }
    return low;
}

void clip(std::span<double> shares, double max_share) {
    double const level = clipping_level(shares, max_share);
    double const distributed = max_after_clipping(shares, level) - level;
    for (double& share : shares) {
        share = std::min(share, level) + distributed;
    }
}

/// \param max_share  of a step
void limit_contrast(table_steps& steps, double max_share) {
    std::size_t const count = steps.end - steps.first;
    auto const between = std::span(steps.shares).subspan(steps.first, count);
    double const reach = max_share * static_cast<double>(count);
    if (reach < 1.0) {
        // The equalised part is too short for the full range: it has the maximum slope, the remaining steps share the
        // difference.
        double const beyond = (1.0 - reach) / static_cast<double>(steps.shares.size() - count);
        std::fill(steps.shares.begin(), steps.shares.end(), beyond);
        std::fill(between.begin(), between.end(), max_share);
    } else if (*std::max_element(between.begin(), between.end()) > max_share) {
        clip(between, max_share);
    }
}

}  // namespace

void count_values(counted_image const& image, std::span<std::uint32_t> cumulative) {
    std::fill(cumulative.begin(), cumulative.end(), 0U);
    std::size_t const line_bytes = image.format->line_bytes(image.row_length);
    auto const max_value = static_cast<unsigned>(cumulative.size() - 1);
    for (std::uint32_t y = 0; y < image.height; ++y) {
        for_each_value(image.pixels + y * line_bytes, image.width, *image.format,
                       [&](std::uint32_t, unsigned value) { ++cumulative[std::min(value, max_value)]; });
    }
    std::partial_sum(cumulative.begin(), cumulative.end(), cumulative.begin());
}

void equalise(std::span<std::uint32_t const> cumulative, equalisation_limits const& limits, unsigned value_bits,
              std::span<std::uint16_t> table) {
    auto counts = occurrences(cumulative, table.size());
    if (cumulative.empty() || cumulative.back() == 0) {
        std::fill(counts.begin(), counts.end(), 1.0);
    }
    auto steps = steps_of(counts, limits);
    limit_contrast(steps, limits.contrast / static_cast<double>(steps.shares.size()));
    auto const max_value = static_cast<double>((1U << value_bits) - 1U);
    double risen = 0.0;
    table.front() = 0;
    for (std::size_t i = 0; i + 1 < table.size(); ++i) {
        risen += steps.shares[i];
        table[i + 1] = static_cast<std::uint16_t>(std::lround(std::min(risen, 1.0) * max_value));
    }
}

}  // namespace mediagrabber
