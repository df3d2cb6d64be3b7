#include "lookup_table_file.hpp"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "bounded_file.hpp"

namespace mediagrabber {

raw_table read_table_file(std::filesystem::path const& file) {
    std::string kind = file.extension().string();
    std::transform(kind.begin(), kind.end(), kind.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    auto const read = kind == ".csv" || kind == ".txt"    ? read_csv_table
                      : kind == ".tif" || kind == ".tiff" ? read_tiff_table
                      : kind == ".npy"                    ? read_npy_table
                                                          : nullptr;
    if (read == nullptr) {
        throw std::runtime_error("is of no known kind, expected a name that ends in .csv, .txt, .tif, .tiff or .npy");
    }
    return read(read_bounded_file(file, largest_table_file));
}

}  // namespace mediagrabber
