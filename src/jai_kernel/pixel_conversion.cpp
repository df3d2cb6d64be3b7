// SPDX-License-Identifier: MIT
#include "pixel_conversion.hpp"

#include <algorithm>
#include <cstring>

#include "packed12.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

namespace {

constexpr uint16_t _S_max12 = 4095;  ///< largest value of 12 bits

uint16_t _T_load16(uint8_t const* line, size_t x) {
    uint16_t value;
    std::memcpy(&value, line + 2 * x, sizeof value);
    return std::min(value, _S_max12);
}

void _T_store16(uint8_t* line, size_t x, uint16_t value) {
    std::memcpy(line + 2 * x, &value, sizeof value);
}

// ---- Line conversions: each converts `width` pixels --------------------------------------------------------

void _T_mono8_to_mono12(uint8_t const* source, uint8_t* target, size_t width) {
    for (size_t x = 0; x < width; ++x) {
        _T_store16(target, x, static_cast<uint16_t>(source[x] << 4));
    }
}

void _T_mono12_to_mono8(uint8_t const* source, uint8_t* target, size_t width) {
    for (size_t x = 0; x < width; ++x) {
        target[x] = static_cast<uint8_t>(_T_load16(source, x) >> 4);
    }
}

void _T_mono8_to_packed(uint8_t const* source, uint8_t* target, size_t width) {
    for (size_t pair = 0; pair < width / 2; ++pair) {
        target[3 * pair] = source[2 * pair];
        target[3 * pair + 1] = 0;
        target[3 * pair + 2] = source[2 * pair + 1];
    }
    if (width % 2 != 0) {
        target[width / 2 * 3] = source[width - 1];
        target[width / 2 * 3 + 1] = 0;
    }
}

void _T_packed_to_mono8(uint8_t const* source, uint8_t* target, size_t width) {
    for (size_t pair = 0; pair < width / 2; ++pair) {
        target[2 * pair] = source[3 * pair];
        target[2 * pair + 1] = source[3 * pair + 2];
    }
    if (width % 2 != 0) {
        target[width - 1] = source[width / 2 * 3];
    }
}

/// Packs pixels that have no more than 12 bits.
void _T_pack(uint16_t const* source, uint8_t* target, size_t width) {
    size_t x = 0;
    // Each store writes eight bytes of which six are valid; the next store overwrites the other two. The last pixels
    // are packed one by one, so no store reaches beyond the line.
    for (; x + 8 <= width; x += 4) {
        uint64_t pixels;
        std::memcpy(&pixels, source + x, sizeof pixels);
        uint64_t const bytes = packed12::packFour(pixels);
        std::memcpy(target + x / 2 * 3, &bytes, sizeof bytes);
    }
    for (; x < width; ++x) {
        if (x % 2 == 0) {
            target[x / 2 * 3 + 1] = 0;
        }
        packed12::put(target, x, source[x]);
    }
}

/// Pixels that are computed before they are packed. Even, so that a run ends at the end of a three-byte group; small
/// enough to stay in the level 1 cache.
constexpr size_t _S_run = 128;

/// Packs a line whose pixels `compute(first, count, pixels)` provides run by run.
template <typename function>
void _T_pack_runs(uint8_t* target, size_t width, function&& compute) {
    uint16_t pixels[_S_run];
    for (size_t first = 0; first < width; first += _S_run) {
        size_t const count = std::min(_S_run, width - first);
        compute(first, count, pixels);
        _T_pack(pixels, target + first / 2 * 3, count);
    }
}

void _T_mono12_to_packed(uint8_t const* source, uint8_t* target, size_t width) {
    _T_pack_runs(target, width, [source](size_t first, size_t count, uint16_t* pixels) {
        for (size_t x = 0; x < count; ++x) {
            pixels[x] = _T_load16(source, first + x);
        }
    });
}

void _T_packed_to_mono12(uint8_t const* source, uint8_t* target, size_t width) {
    size_t x = 0;
    for (; x + 8 <= width; x += 4) {
        uint64_t bytes;
        std::memcpy(&bytes, source + x / 2 * 3, sizeof bytes);
        uint64_t const pixels = packed12::unpackFour(bytes);
        std::memcpy(target + 2 * x, &pixels, sizeof pixels);
    }
    for (; x < width; ++x) {
        _T_store16(target, x, packed12::get(source, x));
    }
}

using line_conversion = void (*)(uint8_t const*, uint8_t*, size_t);

/// \return null if `from` cannot be converted to `to`
line_conversion _T_line_conversion(format_code from, format_code to) {
    using enum format_code;
    struct entry {
        format_code from, to;
        line_conversion convert;
    };
    static constexpr entry _s_conversions[] = {
        {Mono8, Mono12, _T_mono8_to_mono12},         {Mono12, Mono8, _T_mono12_to_mono8},
        {Mono8, Mono12Packed, _T_mono8_to_packed},   {Mono12Packed, Mono8, _T_packed_to_mono8},
        {Mono12, Mono12Packed, _T_mono12_to_packed}, {Mono12Packed, Mono12, _T_packed_to_mono12},
    };
    for (auto const& entry : _s_conversions) {
        if (entry.from == from && entry.to == to) {
            return entry.convert;
        }
    }
    return nullptr;
}

// ---- Bayer to grey ------------------------------------------------------------------------------

/// Mirrors a coordinate about the outermost pixels. With a single pixel on a side, that pixel is its own neighbour.
size_t _T_mirrored(ptrdiff_t at, size_t length) {
    auto const last = static_cast<ptrdiff_t>(length) - 1;
    if (last == 0) {
        return 0;
    }
    return static_cast<size_t>(at < 0 ? -at : at > last ? 2 * last - at : at);
}

/// The three lines from which a grey line is computed.
struct bayer_lines {
    uint8_t const* above;
    uint8_t const* here;
    uint8_t const* below;
    /// Sum of a column's weights 1 2 1: at most 4 x 255.
    unsigned column(size_t x) const { return above[x] + 2U * here[x] + below[x]; }
};

/// Stores the grey values of `count` pixels from `first` on. The weights sum to 16, so 8-bit pixels give 12-bit values,
/// at most 16 x 255.
template <typename put>
void _T_grey(bayer_lines const& lines, size_t width, size_t first, size_t count, put&& store) {
    auto const edge = [&](size_t x) {
        auto const at = static_cast<ptrdiff_t>(x);
        store(x - first, lines.column(_T_mirrored(at - 1, width)) + 2 * lines.column(x) +
                             lines.column(_T_mirrored(at + 1, width)));
    };
    size_t const last = first + count;
    if (first == 0) {
        edge(0);
    }
    for (size_t x = std::max<size_t>(first, 1); x < std::min(last, width - 1); ++x) {
        store(x - first, lines.column(x - 1) + 2 * lines.column(x) + lines.column(x + 1));
    }
    if (last == width && width > 1) {
        edge(width - 1);
    }
}

void _T_grey_line_to(format_code code, bayer_lines const& lines, uint8_t* target, size_t width) {
    switch (code) {
        case format_code::Mono8:
            _T_grey(lines, width, 0, width,
                    [target](size_t x, unsigned grey) { target[x] = static_cast<uint8_t>(grey >> 4); });
            break;
        case format_code::Mono12:
            _T_grey(lines, width, 0, width,
                    [target](size_t x, unsigned grey) { _T_store16(target, x, static_cast<uint16_t>(grey)); });
            break;
        case format_code::Mono12Packed:
            _T_pack_runs(target, width, [&](size_t first, size_t count, uint16_t* pixels) {
                _T_grey(lines, width, first, count,
                        [pixels](size_t x, unsigned grey) { pixels[x] = static_cast<uint16_t>(grey); });
            });
            break;
        case format_code::BayerRG8:
        case format_code::none:
            break;  // not a conversion to grey
    }
}

void _T_bayer_to_grey(pixel_format const& to, uint8_t const* source, uint8_t* target, size_t width, size_t height) {
    size_t const targetLine = to.lineBytes(static_cast<uint32_t>(width));
    for (size_t y = 0; y < height; ++y) {
        auto const at = static_cast<ptrdiff_t>(y);
        bayer_lines const lines{.above = source + _T_mirrored(at - 1, height) * width,
                                .here = source + y * width,
                                .below = source + _T_mirrored(at + 1, height) * width};
        _T_grey_line_to(to.code, lines, target + y * targetLine, width);
    }
}

}  // namespace

bool PixelConversion__IsPossible(pixel_format const& from, pixel_format const& to) {
    if (from.code == to.code) {
        return true;
    }
    return from.filter == color_filter::none ? _T_line_conversion(from.code, to.code) != nullptr
                                             : to.filter == color_filter::none;
}

bool PixelConversion__Convert(pixel_format const& from, pixel_format const& to, std::span<uint8_t const> source,
                              std::span<uint8_t> target, uint32_t width, uint32_t height) {
    size_t const sourceBytes = from.frameBytes(width, height);
    if (!PixelConversion__IsPossible(from, to) || source.size() < sourceBytes ||
        target.size() < to.frameBytes(width, height)) {
        return false;
    }
    if (width == 0 || height == 0) {
        return true;
    }
    if (from.code == to.code) {
        std::memcpy(target.data(), source.data(), sourceBytes);
        return true;
    }
    if (from.filter == color_filter::bayerRg) {
        _T_bayer_to_grey(to, source.data(), target.data(), width, height);
        return true;
    }
    auto* const convert = _T_line_conversion(from.code, to.code);
    for (size_t y = 0; y < height; ++y) {
        convert(source.data() + y * from.lineBytes(width), target.data() + y * to.lineBytes(width), width);
    }
    return true;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
