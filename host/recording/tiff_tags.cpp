// SPDX-License-Identifier: MIT
#include "recording/tiff_tags.hpp"

#include <ctime>

namespace mediagrabber {

std::string tiff_date(std::uint64_t timestamp_us) {
    auto const seconds = static_cast<std::time_t>(timestamp_us / 1'000'000);
    std::tm broken_down{};
    std::array<char, 32> text{};
    if (gmtime_r(&seconds, &broken_down) == nullptr || broken_down.tm_year + 1900 > 9999 ||
        std::strftime(text.data(), text.size(), "%Y:%m:%d %H:%M:%S", &broken_down) != 19) {
        return {};
    }
    return text.data();
}

std::string tiff_description(frame_record const& record) {
    return "frame " + std::to_string(record.number) + ", " + std::to_string(record.timestamp_us) +
           " us since 1970-01-01 UTC, " + std::string(record.format->name) + ", " +
           std::to_string(record.format->significant_bits) + " significant bits";
}

}  // namespace mediagrabber
