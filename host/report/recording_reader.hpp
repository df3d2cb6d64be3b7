#pragma once
/// \file
/// A recording that is over, read back from its directory.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "pixel_format.hpp"

namespace mediagrabber {

/// A line of frames.jsonl; null there is absent here.
struct journal_entry {
    std::optional<std::string> file;
    std::optional<std::uint64_t> page;    ///< of a file with many, from 0
    std::optional<std::uint64_t> offset;  ///< bytes, in a file that is nothing but pixels
    std::uint64_t number = 0;             ///< lost frames are counted, too
    std::uint64_t timestamp_us = 0;
    std::optional<double> gain_db;
    std::optional<double> exposure_us;
    std::optional<double> temperature_c;
    std::optional<std::uint32_t> counter;  ///< the camera's exposures
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    pixel_format const* format = nullptr;
};

/// Reads frames.jsonl of a directory. A last line without an end is left out: a recording may have been cut short.
/// \throws std::runtime_error with file, line and what is wrong
std::vector<journal_entry> read_journal(std::filesystem::path const& directory);

/// Pixels of a frame, 0 to 255 each.
struct small_picture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t channels = 1;  ///< 3: red, green, blue
    std::vector<std::uint8_t> values;
};

/// A frame of a recording, made smaller by leaving pixels out. Of a mosaic of colours each cell becomes a pixel.
/// \param entry  has to name a file
/// \param widest pixels in a line, at most
/// \throws std::runtime_error when the file can't be read
small_picture read_thumbnail(std::filesystem::path const& directory, journal_entry const& entry, std::uint32_t widest);

}  // namespace mediagrabber
