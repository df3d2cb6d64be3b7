// SPDX-License-Identifier: MIT
/// \file
/// LUT files in each format.
///
/// Input: one byte, which selects the format and the number of bits of the integers; then the file.

#include "lut/lookup_table_file.hpp"

#include <array>
#include <stdexcept>

#include "fuzz_input.hpp"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    using namespace mediagrabber;
    constexpr std::array readers{read_csv_lut, read_tiff_lut, read_npy_lut};
    constexpr unsigned min_bits = 8;
    fuzz_input input(data, size);
    uint8_t const kind = input.byte();
    unsigned const bits = kind / readers.size() % 10;
    std::string const bytes = input.text();
    try {
        raw_lut const raw = readers[kind % readers.size()](bytes);
        require(!raw.bits || *raw.bits == 8 || *raw.bits == 16, "integers have 8 or 16 bits");
        auto const lut = scaled_lut(raw, bits == 0 ? std::nullopt : std::optional(min_bits + bits - 1));
        require(lut.size() >= min_lut_entries && lut.size() % min_lut_entries == 0 && lut.size() < max_lut_entries,
                "the LUT has a length that the plug-in accepts");
        for (std::uint16_t const entry : lut) {
            require(entry < 1U << lut_value_bits, "an entry is on the 12-bit scale");
        }
    } catch (std::runtime_error const&) {
        return 0;
    }
    return 0;
}
