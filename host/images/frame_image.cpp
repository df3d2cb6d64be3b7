// SPDX-License-Identifier: MIT
#include "images/frame_image.hpp"

#include <turbojpeg.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <numeric>
#include <stdexcept>

#include "frames/frame_pixels.hpp"

namespace mediagrabber {

namespace {

constexpr int quality = 85;  ///< of 100: artefacts are hardly visible

/// Reads the pixel values of one line.
void read_line(frame_view const& frame, std::uint32_t y, std::vector<std::uint16_t>& values) {
    auto const* const line = frame.pixels.data() + std::size_t{frame.record.stride} * y;
    values.resize(frame.record.width);
    for_each_value(line, frame.record.width, *frame.record.format,
                   [&](std::uint32_t x, unsigned value) { values[x] = static_cast<std::uint16_t>(value); });
}

/// \return the 8-bit value shown for each pixel value
std::vector<std::uint8_t> mapping_of(unsigned bits, value_window const& window) {
    std::size_t const values = std::size_t{1} << bits;
    double const black = static_cast<double>(window.black) / 256.0 * static_cast<double>(values);
    double const white = static_cast<double>(window.white) / 256.0 * static_cast<double>(values);
    std::vector<std::uint8_t> table(values);
    for (std::size_t v = 0; v < values; ++v) {
        double const share = (static_cast<double>(v) - black) / (white - black);
        table[v] = static_cast<std::uint8_t>(std::clamp(share * 256.0, 0.0, 255.0));
    }
    return table;
}

/// Reads the lines of a frame, mapped to 8 bits.
class mapped_lines {
public:
    mapped_lines(frame_view const& frame, value_window const& window)
        : frame_(frame), table_(mapping_of(frame.record.format->significant_bits, window)) {}

    void read(std::uint32_t y, std::vector<std::uint8_t>& into) {
        read_line(frame_, y, raw_);
        into.resize(raw_.size());
        for (std::size_t x = 0; x < raw_.size(); ++x) {
            into[x] = table_[std::min<std::size_t>(raw_[x], table_.size() - 1)];
        }
    }

private:
    frame_view const& frame_;
    std::vector<std::uint8_t> const table_;
    std::vector<std::uint16_t> raw_;
};

std::uint32_t divided_up(std::uint32_t value, std::uint32_t by) {
    return (value + by - 1) / by;
}

/// Full resolution.
shown_pixels grey(frame_view const& frame, value_window const& window) {
    shown_pixels made{.width = frame.record.width, .height = frame.record.height, .channels = 1, .values = {}};
    made.values.reserve(std::size_t{made.width} * made.height);
    mapped_lines lines(frame, window);
    std::vector<std::uint8_t> line;
    for (std::uint32_t y = 0; y < made.height; ++y) {
        lines.read(y, line);
        made.values.insert(made.values.end(), line.begin(), line.end());
    }
    return made;
}

/// Averages blocks of `factor` x `factor` pixels; blocks at the right and lower edge may be smaller.
shown_pixels averaged_grey(frame_view const& frame, value_window const& window, std::uint32_t factor) {
    auto const& record = frame.record;
    shown_pixels made{.width = divided_up(record.width, factor),
                      .height = divided_up(record.height, factor),
                      .channels = 1,
                      .values = {}};
    made.values.resize(std::size_t{made.width} * made.height);
    mapped_lines lines(frame, window);
    std::vector<std::uint8_t> line;
    std::vector<std::uint32_t> sums(made.width);
    for (std::uint32_t row = 0; row < made.height; ++row) {
        std::fill(sums.begin(), sums.end(), 0U);
        std::uint32_t const end = std::min(record.height, (row + 1) * factor);
        for (std::uint32_t y = row * factor; y < end; ++y) {
            lines.read(y, line);
            std::uint8_t const* at = line.data();
            std::uint8_t const* const line_end = at + line.size();
            for (auto& sum : sums) {
                auto const* const behind = at + std::min<std::ptrdiff_t>(factor, line_end - at);
                sum = std::accumulate(at, behind, sum);
                at = behind;
            }
        }
        for (std::uint32_t x = 0; x < made.width; ++x) {
            std::uint32_t const columns = std::min(record.width, (x + 1) * factor) - x * factor;
            std::uint32_t const pixels = std::max(1U, columns * (end - row * factor));
            made.values[std::size_t{row} * made.width + x] = static_cast<std::uint8_t>(sums[x] / pixels);
        }
    }
    return made;
}

/// The neighbour of a pixel or line; at an edge the one on the other side, which has the same colour.
std::uint32_t mirrored(std::uint32_t at, int step, std::uint32_t length) {
    bool const outside = step < 0 ? at == 0 : at + 1 == length;
    auto const there = static_cast<std::int64_t>(at) + (outside ? -step : step);
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(there, 0, std::int64_t{length} - 1));
}

/// Bilinear demosaicing in full resolution: a missing colour is the average of the neighbours that have it.
shown_pixels bilinear_colours(frame_view const& frame, value_window const& window) {
    auto const width = frame.record.width;
    auto const height = frame.record.height;
    shown_pixels made{.width = width, .height = height, .channels = 3, .values = {}};
    made.values.resize(std::size_t{3} * width * height);
    mapped_lines lines(frame, window);
    std::vector<std::uint8_t> up;  // lines y - 1, y, y + 1, mirrored at the edges
    std::vector<std::uint8_t> here;
    std::vector<std::uint8_t> down;
    lines.read(mirrored(0, 1, height), here);
    lines.read(0, down);
    for (std::uint32_t y = 0; y < height; ++y) {
        std::swap(up, here);
        std::swap(here, down);
        lines.read(mirrored(y, 1, height), down);
        for (std::uint32_t x = 0; x < width; ++x) {
            auto const left = mirrored(x, -1, width);
            auto const right = mirrored(x, 1, width);
            auto const across = (here[left] + here[right]) / 2;
            auto const along = (up[x] + down[x]) / 2;
            auto const cross = (here[left] + here[right] + up[x] + down[x]) / 4;
            auto const corners = (up[left] + up[right] + down[left] + down[right]) / 4;
            int const own = here[x];
            bool const red_line = y % 2 == 0;
            bool const even = x % 2 == 0;
            auto* const colour = &made.values[3 * (std::size_t{y} * width + x)];
            int const red = red_line ? (even ? own : across) : (even ? along : corners);
            int const green = red_line == even ? cross : own;
            int const blue = red_line ? (even ? corners : along) : (even ? across : own);
            colour[0] = static_cast<std::uint8_t>(red);
            colour[1] = static_cast<std::uint8_t>(green);
            colour[2] = static_cast<std::uint8_t>(blue);
        }
    }
    return made;
}

/// Demosaics and downscales: each pixel is the average of `cells` x `cells` Bayer cells of 2 x 2 pixels. Incomplete
/// blocks at the right and lower edge are left out.
shown_pixels binned_colours(frame_view const& frame, value_window const& window, std::uint32_t cells) {
    std::uint32_t const side = 2 * cells;
    shown_pixels made{
        .width = frame.record.width / side, .height = frame.record.height / side, .channels = 3, .values = {}};
    made.values.resize(std::size_t{3} * made.width * made.height);
    mapped_lines lines(frame, window);
    std::vector<std::uint8_t> line;
    std::vector<std::uint32_t> sums(std::size_t{3} * made.width);
    for (std::uint32_t row = 0; row < made.height; ++row) {
        std::fill(sums.begin(), sums.end(), 0U);
        for (std::uint32_t y = 0; y < side; ++y) {
            lines.read(row * side + y, line);
            auto const* at = line.data();
            for (std::size_t colour = y % 2; colour < sums.size(); colour += 3) {
                for (std::uint32_t cell = 0; cell < cells; ++cell, at += 2) {
                    sums[colour] += at[0];
                    sums[colour + 1] += at[1];
                }
            }
        }
        for (std::size_t i = 0; i < sums.size(); ++i) {
            std::uint32_t const pixels = cells * cells * (i % 3 == 1 ? 2U : 1U);
            made.values[row * sums.size() + i] = static_cast<std::uint8_t>(sums[i] / pixels);
        }
    }
    return made;
}

}  // namespace

value_histogram count_frame(frame_view const& frame) {
    auto const bits = frame.record.format->significant_bits;
    std::vector<std::uint32_t> counts(std::size_t{1} << bits);
    std::vector<std::uint32_t> of_odd(
        counts.size());  // neighbours are often equal: two tables avoid a dependency between increments
    auto const max_value = static_cast<std::uint16_t>(counts.size() - 1);
    std::vector<std::uint16_t> line;
    for (std::uint32_t y = 0; y < frame.record.height; ++y) {
        read_line(frame, y, line);
        for (std::size_t x = 0; x + 1 < line.size(); x += 2) {
            ++counts[std::min(line[x], max_value)];
            ++of_odd[std::min(line[x + 1], max_value)];
        }
        if (line.size() % 2 != 0) {
            ++counts[std::min(line.back(), max_value)];
        }
    }
    std::transform(counts.begin(), counts.end(), of_odd.begin(), counts.begin(), std::plus());
    value_histogram histogram;
    histogram.pixels = std::uint64_t{frame.record.width} * frame.record.height;
    histogram.black = counts.front();
    histogram.white = counts.back();
    double sum = 0.0;
    for (std::size_t v = 0; v < counts.size(); ++v) {
        histogram.counts[v * value_histogram::bins / counts.size()] += counts[v];
        sum += static_cast<double>(v) * counts[v];
    }
    double const full_scale = static_cast<double>(counts.size() - 1);
    histogram.mean = histogram.pixels == 0 ? 0.0 : sum / full_scale / static_cast<double>(histogram.pixels);
    return histogram;
}

value_window window_of(value_histogram const& histogram) {
    constexpr std::uint64_t share = 1000;
    auto const left_out = histogram.pixels / share;
    auto const& counts = histogram.counts;
    std::uint32_t black = 0;
    for (std::uint64_t below = counts[0]; black + 1 < counts.size() && below <= left_out; below += counts[++black]) {
    }
    std::uint32_t white = value_histogram::bins - 1;
    for (std::uint64_t above = counts[white]; white > black && above <= left_out; above += counts[--white]) {
    }
    return {.black = black, .white = white + 1};
}

shown_pixels shown(frame_view const& frame, value_window const& window, std::uint32_t max_side) {
    auto const longer = std::max(frame.record.width, frame.record.height);
    auto const factor = std::max(1U, divided_up(longer, max_side));
    bool const has_cells = frame.record.width > 1 && frame.record.height > 1;
    if (frame.record.format->cfa == colour_filter::none || !has_cells) {
        return factor == 1 ? grey(frame, window) : averaged_grey(frame, window, factor);
    }
    auto const cells = divided_up(factor, 2);
    bool const fits = frame.record.width >= 2 * cells && frame.record.height >= 2 * cells;
    return factor == 1 || !fits ? bilinear_colours(frame, window) : binned_colours(frame, window, cells);
}

jpeg_encoder::jpeg_encoder() : turbo_(tjInitCompress()) {
    if (turbo_ == nullptr) {
        throw std::runtime_error(std::string("libjpeg-turbo: ") + tjGetErrorStr2(nullptr));
    }
}

jpeg_encoder::~jpeg_encoder() {
    tjDestroy(turbo_);
}

std::string jpeg_encoder::encode(shown_pixels const& image) {
    bool const colour = image.channels == 3;
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    int const failed =
        tjCompress2(turbo_, image.values.data(), static_cast<int>(image.width), 0, static_cast<int>(image.height),
                    colour ? TJPF_RGB : TJPF_GRAY, &bytes, &size, colour ? TJSAMP_420 : TJSAMP_GRAY, quality, 0);
    std::unique_ptr<unsigned char, void (*)(unsigned char*)> const held(bytes, tjFree);
    if (failed != 0) {
        throw std::runtime_error(std::string("cannot encode the image: ") + tjGetErrorStr2(turbo_));
    }
    return {reinterpret_cast<char const*>(bytes), size};
}

}  // namespace mediagrabber
