#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mediagrabber {

/// Values as a file holds them, before anything is made of them.
struct raw_table {
    std::vector<double> values;
    std::optional<unsigned> bits;  ///< integers of a type with so many bits; empty: fractions from 0 to 1
};

/// A tone curve for the camera: entry i is for the pixel value i / (size - 1) of full scale. Entries are on a 12-bit
/// scale, 0 to 4095.
using lookup_table = std::vector<std::uint16_t>;

inline constexpr std::size_t fewest_entries = 256;
inline constexpr std::size_t most_entries = 65'536;
inline constexpr unsigned table_value_bits = 12;

/// Brings a table onto the 12-bit scale, rounding. A table whose length is a multiple of 256 keeps its entries, but for
/// so many that their number could not be told in 16 bits: then every second one stays. From any other length 256
/// entries are interpolated, the first and the last staying what they are.
///
/// \param bits  how many bits an integer's full scale has, 8 to 16; empty: as many as its type
/// \throws std::runtime_error with the entry that is wrong, when a value is beyond full scale, no number, or when there
///         are too few or too many
lookup_table finished_table(raw_table const& raw, std::optional<unsigned> bits);

/// The same table for the same contents each time, which is never released: the plug-in knows a table by its address.
lookup_table const* kept_table(lookup_table table);

}  // namespace mediagrabber
