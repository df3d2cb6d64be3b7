// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Frames for the tests of conversion and rotation, with slow but simple access to single pixels.

#include <rapidcheck.h>

#include <cstdint>
#include <vector>

#include "jai_kernel/pixel_format.hpp"

namespace pixel_frames {

using Vorn::Support::MediaGrabber::Jai::pixel_format;

struct frame {
    pixel_format const* format;
    uint32_t width, height;
    std::vector<uint8_t> bytes;

    frame(pixel_format const& of, uint32_t w, uint32_t h)
        : format(&of), width(w), height(h), bytes(of.frameBytes(w, h)) {}

    uint32_t get(size_t x, size_t y) const {
        size_t const line = y * format->lineBytes(width);
        switch (format->containerBits) {
            case 8:
                return bytes[line + x];
            case 16:
                return static_cast<uint32_t>(bytes[line + 2 * x] | bytes[line + 2 * x + 1] << 8);
            default:
                return x % 2 == 0 ? bytes[line + x / 2 * 3] * 16U + bytes[line + x / 2 * 3 + 1] % 16U
                                  : bytes[line + x / 2 * 3 + 2] * 16U + bytes[line + x / 2 * 3 + 1] / 16U;
        }
    }
    void put(size_t x, size_t y, uint32_t value) {
        size_t const line = y * format->lineBytes(width);
        switch (format->containerBits) {
            case 8:
                bytes[line + x] = static_cast<uint8_t>(value);
                break;
            case 16:
                bytes[line + 2 * x] = static_cast<uint8_t>(value);
                bytes[line + 2 * x + 1] = static_cast<uint8_t>(value >> 8);
                break;
            default: {
                uint8_t& middle = bytes[line + x / 2 * 3 + 1];
                bytes[line + x / 2 * 3 + (x % 2) * 2] = static_cast<uint8_t>(value / 16);
                middle =
                    static_cast<uint8_t>(x % 2 == 0 ? middle / 16 * 16 + value % 16 : middle % 16 + value % 16 * 16);
            }
        }
    }
    std::vector<uint32_t> pixels() const {
        std::vector<uint32_t> all;
        for (uint32_t y = 0; y < height; ++y) {
            for (uint32_t x = 0; x < width; ++x) {
                all.push_back(get(x, y));
            }
        }
        return all;
    }
};

inline rc::Gen<pixel_format const*> any_format() {
    using namespace Vorn::Support::MediaGrabber::Jai;
    return rc::gen::element(PixelFormat__Find(format_code::Mono8), PixelFormat__Find(format_code::Mono12Packed),
                            PixelFormat__Find(format_code::Mono12), PixelFormat__Find(format_code::BayerRG8));
}

/// Generates frames of any format and size, filled with noise. Mono12 containers may hold more than 12 bits.
inline rc::Gen<frame> any_frame() {
    return rc::gen::exec([] {
        frame made(**any_format(), *rc::gen::inRange<uint32_t>(1, 300), *rc::gen::inRange<uint32_t>(1, 12));
        uint32_t noise = *rc::gen::inRange<uint32_t>(1, 1'000'000);
        for (auto& byte : made.bytes) {
            noise = noise * 1'664'525 + 1'013'904'223;
            byte = static_cast<uint8_t>(noise >> 24);
        }
        return made;
    });
}

}  // namespace pixel_frames
