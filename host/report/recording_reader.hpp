// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Reads a recording back from its directory.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "frames/frame_format.hpp"

namespace mediagrabber {

/// A line of frames.jsonl. A value that is null there is absent here.
struct index_entry {
    std::optional<std::string> file;      ///< relative to the directory that is read
    std::optional<std::uint64_t> page;    ///< from 0; in a file of several pages
    std::optional<std::uint64_t> offset;  ///< bytes; in a raw file
    std::uint64_t number = 0;             ///< frame number; dropped frames have numbers, too
    std::uint64_t timestamp_us = 0;
    std::optional<double> gain_db;
    std::optional<double> exposure_us;
    std::optional<double> temperature_c;
    std::optional<double> time_uncertainty_us;  ///< of the exposure time
    std::optional<std::string> time_source;
    std::optional<double> clock_drift_ppm;
    std::optional<std::uint32_t> counter;  ///< the camera's exposure counter
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    frame_format const* format = nullptr;
};

/// Reads the frame index of a recording, or of all recordings and segments below a directory, in the order of their
/// names. A last line without a line end is ignored, as a crash may leave one.
/// \throws std::runtime_error  with file, line and reason; also for a file name outside of the directory
std::vector<index_entry> read_index(std::filesystem::path const& directory);

/// An image of 8 bits per channel without padding.
struct small_image {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t channels = 1;  ///< 1: grey; 3: red, green, blue
    std::vector<std::uint8_t> values;
};

/// Reads a frame in reduced size, by skipping pixels. Each cell of a Bayer pattern becomes one pixel.
/// \param entry      with a file
/// \param max_width  pixels
/// \throws std::runtime_error if the file cannot be read
small_image read_thumbnail(std::filesystem::path const& directory, index_entry const& entry, std::uint32_t max_width);

}  // namespace mediagrabber
