#include "tone_equalisation.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <vector>

namespace mediagrabber {

namespace {

/// Pixel `x` of a line.
unsigned value_at(std::byte const* line, std::uint32_t x, pixel_format const& format) {
    auto const byte_at = [line](std::size_t i) { return std::to_integer<unsigned>(line[i]); };
    switch (format.container_bits) {
        case 8:
            return byte_at(x);
        case 12: {
            std::size_t const pair = std::size_t{x} / 2 * 3;
            unsigned const low_bits = byte_at(pair + 1);
            return x % 2 == 0 ? byte_at(pair) << 4U | (low_bits & 0xFU) : byte_at(pair + 2) << 4U | low_bits >> 4U;
        }
        default:
            return byte_at(std::size_t{x} * 2) | byte_at(std::size_t{x} * 2 + 1) << 8U;
    }
}

/// The steps of a table, from each entry to the next, as shares of all that it rises; and the part of it that is
/// equalised.
struct table_steps {
    std::vector<double> shares;
    std::size_t first = 0;  ///< step
    std::size_t end = 0;    ///< one behind the last
};

/// How often each value of a table's input occurs, where the table has `entries` of them.
std::vector<double> occurrences(std::span<std::uint32_t const> cumulative, std::size_t entries) {
    std::vector<double> counts(entries, 0.0);
    std::uint32_t before = 0;
    for (std::size_t v = 0; v < cumulative.size(); ++v) {
        // Where the picture was counted more finely than the table is, neighbours fall together.
        std::size_t const entry = v * entries / cumulative.size();
        counts[entry] += static_cast<double>(cumulative[v] - before);
        before = cumulative[v];
    }
    return counts;
}

/// Each step gets what the value at its upper end has. Steps below the black share and above the white share get
/// nothing.
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

/// Cuts shares off at `level` and gives what is cut off to all alike. \return the largest share after that
double largest_after_clipping(std::span<double const> shares, double level) {
    double kept = 0.0;
    for (double const share : shares) {
        kept += std::min(share, level);
    }
    return level + (1.0 - kept) / static_cast<double>(shares.size());
}

/// The level at which the largest share becomes `largest`, by bisection: the one rises with the other.
double clipping_level(std::span<double const> shares, double largest) {
    constexpr int halvings = 50;
    double low = 0.0;
    double high = largest;
    for (int i = 0; i < halvings; ++i) {
        double const middle = (low + high) / 2.0;
        (largest_after_clipping(shares, middle) > largest ? high : low) = middle;
    }
    return low;
}

void clip(std::span<double> shares, double largest) {
    double const level = clipping_level(shares, largest);
    double const gift = largest_after_clipping(shares, level) - level;
    for (double& share : shares) {
        share = std::min(share, level) + gift;
    }
}

/// \param largest  that a share may be; all of them could be, and reach 1
void limit_contrast(table_steps& steps, double largest) {
    std::size_t const count = steps.end - steps.first;
    auto const between = std::span(steps.shares).subspan(steps.first, count);
    double const reach = largest * static_cast<double>(count);
    if (reach < 1.0) {
        // What may rise is too short to rise all the way: it rises as steeply as it may, and the rest makes up for it.
        double const beyond = (1.0 - reach) / static_cast<double>(steps.shares.size() - count);
        std::fill(steps.shares.begin(), steps.shares.end(), beyond);
        std::fill(between.begin(), between.end(), largest);
    } else if (*std::max_element(between.begin(), between.end()) > largest) {
        clip(between, largest);
    }
}

}  // namespace

void count_values(counted_picture const& picture, std::span<std::uint32_t> cumulative) {
    std::fill(cumulative.begin(), cumulative.end(), 0U);
    std::size_t const line_bytes = picture.format->line_bytes(picture.row_length);
    auto const largest = static_cast<unsigned>(cumulative.size() - 1);
    for (std::uint32_t y = 0; y < picture.height; ++y) {
        std::byte const* const line = picture.pixels + y * line_bytes;
        for (std::uint32_t x = 0; x < picture.width; ++x) {
            ++cumulative[std::min(value_at(line, x, *picture.format), largest)];
        }
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
    auto const largest = static_cast<double>((1U << value_bits) - 1U);
    double risen = 0.0;
    table.front() = 0;
    for (std::size_t i = 0; i + 1 < table.size(); ++i) {
        risen += steps.shares[i];
        table[i + 1] = static_cast<std::uint16_t>(std::lround(std::min(risen, 1.0) * largest));
    }
}

}  // namespace mediagrabber
