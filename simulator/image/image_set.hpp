// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

namespace camsim {

/// The images of a directory, which the camera exposes one after the other instead of its test chart. Immutable, so
/// threads share it without a lock.
class image_set {
public:
    /// Images in memory, in bytes. 200 images of 5 megapixels fit.
    static constexpr std::size_t max_bytes = std::size_t{2} << 30U;

    /// Reads all TIFF and PNG files of a directory, in the order of their names. Values are 12-bit: those of 8-bit
    /// files are multiplied by 16, those of 16-bit files divided by 16 unless all of them have at most 12 bits.
    /// \throws std::runtime_error naming the file if one cannot be read, is neither grey nor RGB, or has another size
    ///     than the first one; also if the directory has no such files, or more than max_bytes
    static std::shared_ptr<image_set const> read(std::filesystem::path const& directory);

    std::filesystem::path const& directory() const { return directory_; }
    std::uint32_t width() const { return width_; }    ///< pixels
    std::uint32_t height() const { return height_; }  ///< lines
    std::size_t count() const { return images_.size(); }

    /// \param index below count(), \param y below height()
    /// \return the samples of a line: one for each pixel of a grey image, or red, green and blue
    std::span<std::uint16_t const> line(std::size_t index, std::uint32_t y) const;
    std::size_t samples_per_pixel(std::size_t index) const { return images_[index].samples; }

private:
    struct image {
        std::size_t samples;  ///< per pixel: 1 or 3
        std::vector<std::uint16_t> values;
    };

    explicit image_set(std::filesystem::path directory) : directory_(std::move(directory)) {}

    std::filesystem::path directory_;
    std::uint32_t width_ = 0;
    std::uint32_t height_ = 0;
    std::vector<image> images_;
};

}  // namespace camsim
