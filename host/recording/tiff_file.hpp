#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "configuration.hpp"
#include "frame_record.hpp"

namespace mediagrabber {

/// Writes frames as TIFF files: 8-bit greyscale, 16-bit greyscale with 12-bit values as they are (Mono12Packed
/// unpacked), BayerRG8 as an 8-bit colour filter array (red, green / green, blue).
class tiff_file {
public:
    /// \param software  who wrote the file
    /// \param model     the camera's model, empty when unknown
    tiff_file(tiff_compression compression, std::string software, std::string model);

    /// Writes a whole file to `descriptor`, an empty file open for reading and writing, and leaves it open.
    /// \throws std::runtime_error
    void write(int descriptor, frame_view const& frame) const;

    /// The pixels as they lie compressed in such a file. \throws std::exception
    std::vector<std::byte> encoded_strip(frame_view const& frame) const;

    tiff_compression compression() const { return compression_; }
    std::string const& software() const { return software_; }
    std::string const& model() const { return model_; }

private:
    tiff_compression const compression_;
    std::string const software_;
    std::string const model_;
};

}  // namespace mediagrabber
