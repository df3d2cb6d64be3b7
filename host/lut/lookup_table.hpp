// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mediagrabber {

/// The values of a LUT file, before they are scaled.
struct raw_lut {
    std::vector<double> values;
    std::optional<unsigned> bits;  ///< bits of the integer type; empty: fractions from 0 to 1
};

/// A LUT for the camera: entry i belongs to the pixel value i / (size - 1) of full scale. Entries are on a 12-bit
/// scale, 0 to 4095, the depth of the camera family's LUT.
using lookup_table = std::vector<std::uint16_t>;

inline constexpr std::size_t min_lut_entries = 256;
inline constexpr std::size_t max_lut_entries = 65'536;
inline constexpr unsigned lut_value_bits = 12;

/// Scales a LUT to 12 bits, with rounding. If its size is a multiple of 256, it keeps its entries; of 65536 entries,
/// every second one is kept, because the host function returns the size in 16 bits. Any other size is interpolated to
/// 256 entries, with the first and the last entry preserved.
///
/// \param bits  full scale of the integers, 8 to 16 bits; empty: that of their type
/// \throws std::runtime_error if the size is out of range, or with the first entry that is not a number or beyond full
///         scale
lookup_table scaled_lut(raw_lut const& raw, std::optional<unsigned> bits);

/// Stores a LUT until the process ends, once per content: the plug-in identifies a LUT by its address. May be called by
/// any thread.
lookup_table const* interned_lut(lookup_table table);

}  // namespace mediagrabber
