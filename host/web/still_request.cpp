// SPDX-License-Identifier: MIT
#include "web/still_request.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

namespace mediagrabber {

namespace {

constexpr std::uint32_t max_by = 64;

void refuse_unknown(http_request const& request, std::initializer_list<std::string_view> known) {
    for (auto const& [name, value] : request.parameters) {
        if (std::ranges::find(known, name) == known.end()) {
            std::string list;
            for (auto const one : known) {
                list += (list.empty() ? "" : ", ") + std::string(one);
            }
            throw still_refused(fmt::format("unknown parameter \"{}\", expected one of {}", name, list));
        }
    }
}

/// \return nothing if the parameter is absent
std::optional<std::uint64_t> optional_number(http_request const& request, char const* name, std::uint64_t max) {
    auto const found = request.parameters.find(name);
    if (found == request.parameters.end()) {
        return std::nullopt;
    }
    std::string_view const text = found->second;
    std::uint64_t number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number > max) {
        throw still_refused(fmt::format("{}: expected a number from 0 to {}", name, max));
    }
    return number;
}

std::uint32_t required_number(http_request const& request, char const* name) {
    auto const number = optional_number(request, name, std::numeric_limits<std::uint32_t>::max());
    if (!number) {
        throw still_refused(fmt::format("{} is missing: a tile needs x, y, width and height in pixels", name));
    }
    return static_cast<std::uint32_t>(*number);
}

void read_frame(http_request const& request, still_request& into) {
    constexpr auto max = std::numeric_limits<std::uint64_t>::max();
    into.frame = optional_number(request, "frame", max);
    into.after = optional_number(request, "after", max).value_or(0);
}

std::uint64_t divided_up(std::uint32_t value, std::uint32_t by) {
    return (std::uint64_t{value} + by - 1) / by;
}

void check_axis(char const* offset_name, std::uint32_t offset, char const* size_name, std::uint32_t size,
                std::uint32_t available) {
    auto const end = std::uint64_t{offset} + size;
    if (end > available) {
        throw still_refused(fmt::format("{} + {} = {} is beyond the frame's {} of {} pixels", offset_name, size_name,
                                        end, size_name, available));
    }
}

}  // namespace

still_request read_image_request(http_request const& request, bool may_have_8_bits) {
    if (may_have_8_bits) {
        refuse_unknown(request, {"frame", "after", "colour", "bits"});
    } else {
        refuse_unknown(request, {"frame", "after", "colour"});
    }
    still_request read;
    read_frame(request, read);
    auto const colour = request.parameter("colour");
    if (!colour.empty() && colour != "rgb" && colour != "raw") {
        throw still_refused("colour: expected rgb or raw");
    }
    read.colour = colour != "raw";
    auto const bits = optional_number(request, "bits", 8);
    if (bits && *bits != 8) {
        throw still_refused("bits: expected 8, or no parameter for full depth");
    }
    read.in_8_bits = bits.has_value();
    return read;
}

still_request read_tile_request(http_request const& request) {
    refuse_unknown(request, {"frame", "after", "x", "y", "width", "height", "by"});
    still_request read;
    read_frame(request, read);
    read.part = {.x = required_number(request, "x"),
                 .y = required_number(request, "y"),
                 .width = required_number(request, "width"),
                 .height = required_number(request, "height")};
    read.by = static_cast<std::uint32_t>(optional_number(request, "by", max_by).value_or(1));
    if (read.by == 0) {
        throw still_refused(fmt::format("by: expected a number from 1 to {}", max_by));
    }
    if (read.part.width == 0 || read.part.height == 0) {
        throw still_refused("width and height must be at least 1");
    }
    auto const values = divided_up(read.part.width, read.by) * divided_up(read.part.height, read.by);
    if (values > max_tile_values) {
        throw still_refused(
            fmt::format("a tile of {} values is larger than the limit of {}: request several tiles of one frame",
                        values, max_tile_values));
    }
    return read;
}

void check_tile(still_request const& request, frame_record const& frame) {
    check_axis("x", request.part.x, "width", request.part.width, frame.width);
    check_axis("y", request.part.y, "height", request.part.height, frame.height);
}

}  // namespace mediagrabber
