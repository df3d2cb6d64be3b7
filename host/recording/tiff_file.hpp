// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "config/configuration.hpp"
#include "frames/frame_record.hpp"

namespace mediagrabber {

/// Encodes frames as TIFF: Mono8 as 8-bit greyscale, Mono12 and Mono12Packed as 16-bit greyscale with values 0 to 4095,
/// BayerRG8 as an 8-bit colour filter array (CFA, red, green / green, blue).
///
/// Immutable, so several threads may use one object.
class tiff_file {
public:
    /// \param software  the writing program, a TIFF tag
    /// \param model     the camera's model, empty if unknown
    tiff_file(tiff_compression compression, std::string software, std::string model);

    /// Writes a complete TIFF file.
    /// \param descriptor  an empty file open for reading and writing; it stays open
    /// \throws std::runtime_error with the reason of the system or of libtiff
    void write(int descriptor, frame_view const& frame) const;

    /// \return the compressed pixels as they are stored in such a file \throws std::exception
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
