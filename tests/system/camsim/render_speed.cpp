// SPDX-License-Identifier: MIT
/// \file
/// Measures how fast frames are rendered, in strips of lines as the sender does.
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "image/frame_renderer.hpp"

namespace {

/// \return pixels per second on this thread
double measure(camsim::pixel_format format) {
    constexpr int frames = 300;
    constexpr std::uint32_t strip_lines = 16;
    camsim::scene_settings const scene;
    camsim::frame_renderer renderer(scene);
    camsim::frame_settings frame;
    frame.area = {scene.sensor_width, scene.sensor_height, 0, 0};
    frame.format = format;
    std::vector<std::byte> strip(strip_lines * camsim::line_bytes(frame.area.width, format));
    std::uint64_t pixels = 0;
    auto const start = std::chrono::steady_clock::now();
    for (int number = 0; number < frames; ++number) {
        ++frame.frame_number;
        renderer.prepare(frame);
        for (std::uint32_t line = 0; line + strip_lines <= frame.area.height; line += strip_lines) {
            renderer.render_lines(line, strip_lines, strip);
            pixels += std::uint64_t{strip_lines} * frame.area.width;
        }
    }
    std::chrono::duration<double> const elapsed = std::chrono::steady_clock::now() - start;
    return static_cast<double>(pixels) / elapsed.count();
}

}  // namespace

int main() {
    for (camsim::named_pixel_format const& format : camsim::pixel_formats) {
        std::printf("%-12s %.2f gigapixels/s\n", std::string(format.name).c_str(), measure(format.format) / 1e9);
    }
}
