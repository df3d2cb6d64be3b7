// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace mediagrabber {

/// Replaces the placeholders of a configured pipeline.
/// \param configured  output.pipeline
/// \param directory   of the recording, for `{directory}`
/// \param start       number of this start of the pipeline, from 1, for `{n}`
std::string pipeline_text(std::string configured, std::filesystem::path const& directory, std::uint64_t start);

}  // namespace mediagrabber
