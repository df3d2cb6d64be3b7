// SPDX-License-Identifier: MIT
#include "pipeline/element_package.hpp"

#include <utility>

namespace mediagrabber {

/// Prefixes of elements that record or stream; where one is a prefix of another, the longer one comes first.
std::string element_package(std::string_view element) {
    constexpr std::pair<std::string_view, std::string_view> packages[] = {
        {"avenc_", "gstreamer1.0-libav"},          {"avdec_", "gstreamer1.0-libav"},
        {"avmux_", "gstreamer1.0-libav"},          {"x264", "gstreamer1.0-plugins-ugly"},
        {"x265", "gstreamer1.0-plugins-bad"},      {"srt", "gstreamer1.0-plugins-bad"},
        {"shm", "gstreamer1.0-plugins-bad"},       {"bayer2rgb", "gstreamer1.0-plugins-bad"},
        {"rtmp2", "gstreamer1.0-plugins-bad"},     {"h264parse", "gstreamer1.0-plugins-bad"},
        {"mpegtsmux", "gstreamer1.0-plugins-bad"}, {"va", "gstreamer1.0-plugins-bad"},
        {"matroska", "gstreamer1.0-plugins-good"}, {"rtsp", "gstreamer1.0-plugins-good"},
        {"rtp", "gstreamer1.0-plugins-good"},      {"udp", "gstreamer1.0-plugins-good"},
        {"v4l2", "gstreamer1.0-plugins-good"},     {"jpegenc", "gstreamer1.0-plugins-good"},
        {"pngenc", "gstreamer1.0-plugins-good"},   {"qtmux", "gstreamer1.0-plugins-good"},
        {"mp4mux", "gstreamer1.0-plugins-good"},   {"avimux", "gstreamer1.0-plugins-good"},
        {"splitmux", "gstreamer1.0-plugins-good"}, {"vp8", "gstreamer1.0-plugins-good"},
        {"vp9", "gstreamer1.0-plugins-good"},      {"tcp", "gstreamer1.0-plugins-base"},
        {"video", "gstreamer1.0-plugins-base"},    {"theora", "gstreamer1.0-plugins-base"},
    };
    for (auto const& [beginning, package] : packages) {
        if (element.starts_with(beginning)) {
            return std::string(package);
        }
    }
    return {};
}

}  // namespace mediagrabber
