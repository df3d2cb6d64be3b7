/// \file
/// Files with look-up tables, of every kind.
///
/// Input: a byte, the kind of file and how many bits its integers have; then the file.

#include "lookup_table_file.hpp"

#include <array>
#include <stdexcept>

#include "fuzz_input.hpp"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    using namespace mediagrabber;
    constexpr std::array readers{read_csv_table, read_tiff_table, read_npy_table};
    constexpr unsigned fewest_bits = 8;
    fuzz_input input(data, size);
    uint8_t const kind = input.byte();
    unsigned const bits = kind / readers.size() % 10;
    std::string const bytes = input.text();
    try {
        raw_table const raw = readers[kind % readers.size()](bytes);
        require(!raw.bits || *raw.bits == 8 || *raw.bits == 16, "integers have 8 or 16 bits");
        auto const table = finished_table(raw, bits == 0 ? std::nullopt : std::optional(fewest_bits + bits - 1));
        require(table.size() >= fewest_entries && table.size() % fewest_entries == 0 && table.size() < most_entries,
                "a table has a length that the plug-in takes");
        for (std::uint16_t const entry : table) {
            require(entry < 1U << table_value_bits, "an entry is on the 12-bit scale");
        }
    } catch (std::runtime_error const&) {
        return 0;
    }
    return 0;
}
