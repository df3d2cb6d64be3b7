#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace mediagrabber {

/// What a pipeline is made from: in the configured text, `{directory}` is the recording's, and `{n}` counts how often
/// the pipeline has begun, from 1.
std::string pipeline_text(std::string configured, std::filesystem::path const& directory, std::uint64_t start);

}  // namespace mediagrabber
