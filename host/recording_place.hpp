#pragma once

#include <chrono>
#include <filesystem>
#include <string>

namespace mediagrabber {

/// Where a recording goes: `{time}` in a configured directory is when it began, as 20261121T173318Z.
std::filesystem::path recording_place(std::string configured, std::chrono::system_clock::time_point began);

}  // namespace mediagrabber
