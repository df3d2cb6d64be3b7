#include "recording_place.hpp"

#include <ctime>

namespace mediagrabber {

namespace {

constexpr std::string_view placeholder = "{time}";

std::string utc_text(std::chrono::system_clock::time_point when) {
    std::time_t const seconds = std::chrono::system_clock::to_time_t(when);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32] = "";
    std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
    return text;
}

}  // namespace

std::filesystem::path recording_place(std::string configured, std::chrono::system_clock::time_point began) {
    std::string const time = utc_text(began);
    for (std::size_t at = configured.find(placeholder); at != std::string::npos;
         at = configured.find(placeholder, at + time.size())) {
        configured.replace(at, placeholder.size(), time);
    }
    return configured;
}

}  // namespace mediagrabber
