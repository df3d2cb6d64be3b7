#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "lookup_table.hpp"

namespace mediagrabber {

/// Reads a table from a file, whose kind its name tells: .csv or .txt, .tif or .tiff, .npy.
/// \throws std::runtime_error with what is wrong and where in the file, without the file's name
raw_table read_table_file(std::filesystem::path const& file);

/// The largest file that is read, in bytes.
inline constexpr std::size_t largest_table_file = std::size_t{8} << 20U;

// The kinds; each \throws std::runtime_error as above.

/// Text: a value a line; or an index, which counts from 0, and a value a line; or all values on one line. Separators
/// are commas, semicolons and blanks; what follows a # is left out, and so is a first line without a number. With a
/// point or an exponent in any value, all are fractions of full scale; else they are integers of 16 bits.
raw_table read_csv_table(std::string_view text);

/// A picture of one line or one column, greyscale, 8 or 16 bits.
raw_table read_tiff_table(std::string_view bytes);

/// NumPy's format, versions 1 to 3: one dimension of unsigned integers of 8 or 16 bits, or of floats of 32 or 64 bits,
/// which are fractions of full scale; either byte order.
raw_table read_npy_table(std::string_view bytes);

}  // namespace mediagrabber
