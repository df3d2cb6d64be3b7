// SPDX-License-Identifier: MIT
#include "images/full_pixels.hpp"

#include <png.h>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <vector>

#include "frames/frame_pixels.hpp"
#include "images/frame_image.hpp"

namespace mediagrabber {

namespace {

void append_number(std::string& file, std::uint32_t value, unsigned bytes) {
    for (unsigned i = 0; i < bytes; ++i) {
        file.push_back(static_cast<char>(value >> 8U * i & 0xFFU));
    }
}

/// The types of TIFF fields.
enum field_type : std::uint32_t { short_type = 3, long_type = 4 };

/// \param count  more than one value needs `value` to be an offset
void append_tag(std::string& file, std::uint32_t tag, field_type type, std::uint32_t value, std::uint32_t count = 1) {
    append_number(file, tag, 2);
    append_number(file, type, 2);
    append_number(file, count, 4);
    append_number(file, value, 4);  // little-endian: a short is in the lower half
}

full_pixels from_8_bits(shown_pixels const& image) {
    return {.width = image.width,
            .height = image.height,
            .channels = image.channels,
            .bits = 8,
            .values = {image.values.begin(), image.values.end()}};
}

bool has_colour(frame_view const& frame) {
    return frame.record.format->cfa != colour_filter::none;
}

constexpr auto no_limit = std::numeric_limits<std::uint32_t>::max();

}  // namespace

full_pixels all_pixels(frame_view const& frame, bool colour) {
    if (colour && has_colour(frame) && frame.record.format->significant_bits == 8) {
        return all_pixels_in_8_bits(frame, true);
    }
    std::vector<std::byte> copy;
    auto const values = unpacked(frame, copy);
    return {.width = frame.record.width,
            .height = frame.record.height,
            .channels = 1,
            .bits = unpacked_bits(*frame.record.format),
            .values = {reinterpret_cast<char const*>(values.data()), values.size()}};
}

full_pixels all_pixels_in_8_bits(frame_view const& frame, bool colour) {
    if (has_colour(frame) && !colour) {
        return part_of(frame, {.width = frame.record.width, .height = frame.record.height}, 1);
    }
    return from_8_bits(shown(frame, {}, no_limit));
}

full_pixels part_of(frame_view const& frame, pixel_rectangle const& part, std::uint32_t by) {
    auto const divided_up = [by](std::uint32_t value) { return value / by + (value % by != 0 ? 1 : 0); };
    auto const& format = *frame.record.format;
    full_pixels made{.width = divided_up(part.width),
                     .height = divided_up(part.height),
                     .channels = 1,
                     .bits = unpacked_bits(format),
                     .values = {}};
    unsigned const bytes = made.bits / 8;
    made.values.reserve(std::size_t{made.width} * made.height * bytes);
    std::vector<std::uint16_t> row(made.width);
    for (std::uint32_t y = 0; y < part.height; ++y) {
        // The packed format has no pixel boundaries within a line, so a line is read from its beginning.
        for_each_value(frame.pixels.data() + std::size_t{frame.record.stride} * (part.y + y), part.x + part.width,
                       format, [&](std::uint32_t x, unsigned value) {
                           if (x >= part.x) {
                               auto& max = row[(x - part.x) / by];
                               max = std::max(max, static_cast<std::uint16_t>(value));
                           }
                       });
        if ((y + 1) % by == 0 || y + 1 == part.height) {
            for (auto& value : row) {
                append_number(made.values, value, bytes);
                value = 0;
            }
        }
    }
    return made;
}

std::string encode_tiff(full_pixels const& image) {
    constexpr std::uint32_t tags = 11;
    constexpr std::uint32_t directory = 8;
    constexpr std::uint32_t bits_offset = directory + 2 + tags * 12 + 4;
    constexpr std::uint32_t pixels_offset = bits_offset + 8;  // three shorts, and two bytes of alignment
    constexpr std::uint32_t no_compression = 1;
    constexpr std::uint32_t black_is_zero = 1;
    constexpr std::uint32_t rgb = 2;
    if (image.values.size() > std::numeric_limits<std::uint32_t>::max() - pixels_offset) {
        throw std::runtime_error("the frame is too large for a TIFF file");
    }
    bool const colour = image.channels == 3;
    std::string file("II");
    file.reserve(pixels_offset + image.values.size());
    append_number(file, 42, 2);
    append_number(file, directory, 4);
    append_number(file, tags, 2);
    append_tag(file, 256, long_type, image.width);
    append_tag(file, 257, long_type, image.height);
    append_tag(file, 258, short_type, colour ? bits_offset : image.bits, image.channels);
    append_tag(file, 259, short_type, no_compression);
    append_tag(file, 262, short_type, colour ? rgb : black_is_zero);
    append_tag(file, 273, long_type, pixels_offset);
    append_tag(file, 277, short_type, image.channels);
    append_tag(file, 278, long_type, image.height);  // one strip
    append_tag(file, 279, long_type, static_cast<std::uint32_t>(image.values.size()));
    append_tag(file, 284, short_type, 1);  // channels of a pixel are adjacent
    append_tag(file, 339, short_type, 1);  // unsigned integers
    append_number(file, 0, 4);             // no other directory
    for (int channel = 0; channel < 3; ++channel) {
        append_number(file, image.bits, 2);
    }
    append_number(file, 0, 2);
    return file += image.values;
}

std::string encode_png(full_pixels const& image) {
    png_image head{};
    head.version = PNG_IMAGE_VERSION;
    head.width = image.width;
    head.height = image.height;
    bool const colour = image.channels == 3;
    // libpng calls 16 bits linear: it stores the values as they are.
    head.format = image.bits == 8 ? (colour ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY)
                                  : (colour ? PNG_FORMAT_LINEAR_RGB : PNG_FORMAT_LINEAR_Y);
    head.flags = PNG_IMAGE_FLAG_FAST;
    // Its 16-bit values are aligned and have this machine's order, which is little-endian.
    std::vector<std::uint16_t> aligned((image.values.size() + 1) / 2);
    std::copy(image.values.begin(), image.values.end(), reinterpret_cast<char*>(aligned.data()));
    std::string file(PNG_IMAGE_PNG_SIZE_MAX(head), '\0');
    png_alloc_size_t size = file.size();
    if (png_image_write_to_memory(&head, file.data(), &size, 0, aligned.data(), 0, nullptr) == 0) {
        throw std::runtime_error(std::string("cannot encode the image: ") + head.message);
    }
    file.resize(size);
    return file;
}

}  // namespace mediagrabber
