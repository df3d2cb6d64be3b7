// SPDX-License-Identifier: MIT
#include "lut/lookup_table_file.hpp"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "base/bounded_file.hpp"

namespace mediagrabber {

raw_lut read_lut_file(std::filesystem::path const& file) {
    std::string type = file.extension().string();
    std::transform(type.begin(), type.end(), type.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    auto const read = type == ".csv" || type == ".txt"    ? read_csv_lut
                      : type == ".tif" || type == ".tiff" ? read_tiff_lut
                      : type == ".npy"                    ? read_npy_lut
                                                          : nullptr;
    if (read == nullptr) {
        throw std::runtime_error(
            "has an unknown type, expected a file name with the extension .csv, .txt, .tif, .tiff or .npy");
    }
    return read(read_bounded_file(file, max_lut_file));
}

}  // namespace mediagrabber
