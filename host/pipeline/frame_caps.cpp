// SPDX-License-Identifier: MIT
#include "pipeline/frame_caps.hpp"

#include <numeric>

#include "frames/frame_pixels.hpp"

namespace mediagrabber {

namespace {

constexpr std::uint32_t second_us = 1'000'000;

std::string media_type(frame_format const& format) {
    if (format.cfa == colour_filter::bayer_rg) {
        return "video/x-bayer,format=rggb";
    }
    return unpacked_bits(format) == 16 ? "video/x-raw,format=GRAY16_LE" : "video/x-raw,format=GRAY8";
}

/// Frame rate as a fraction; "0/1" means not known (variable).
std::string frame_rate_hz(std::uint32_t period_us) {
    if (period_us == 0) {
        return "0/1";
    }
    std::uint32_t const common = std::gcd(second_us, period_us);
    return std::to_string(second_us / common) + "/" + std::to_string(period_us / common);
}

}  // namespace

std::string caps_of(frame_record const& frame, std::uint32_t period_us) {
    return media_type(*frame.format) + ",width=" + std::to_string(frame.width) +
           ",height=" + std::to_string(frame.height) + ",framerate=" + frame_rate_hz(period_us);
}

std::size_t caps_stride(frame_record const& frame) {
    std::size_t const line = std::size_t{frame.width} * unpacked_bits(*frame.format) / 8;
    return (line + 3) / 4 * 4;
}

}  // namespace mediagrabber
