// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "lut/lookup_table.hpp"

namespace mediagrabber {

/// Reads a LUT file. The file name extension determines its type: .csv or .txt, .tif or .tiff, .npy.
/// \throws std::runtime_error with the error and its position, without the file's name
raw_lut read_lut_file(std::filesystem::path const& file);

/// The maximum file size, bytes: 65536 entries as text take about a megabyte.
inline constexpr std::size_t max_lut_file = std::size_t{8} << 20U;

// One function per file type; each \throws std::runtime_error as above.

/// Text: one value per line; or an index, counted from 0, and a value per line; or all values on one line. Separators
/// are commas, semicolons and blanks. Comments begin with #; a first line without a number is a heading. If any value
/// has a decimal point or an exponent, all values are fractions of full scale; otherwise they are 16-bit integers.
raw_lut read_csv_lut(std::string_view text);

/// A greyscale TIFF image of one line or one column, 8 or 16 bits.
raw_lut read_tiff_lut(std::string_view bytes);

/// NumPy, versions 1 to 3: one dimension of uint8, uint16, float32 or float64 in either byte order. Floats are
/// fractions of full scale.
raw_lut read_npy_lut(std::string_view bytes);

}  // namespace mediagrabber
