// SPDX-License-Identifier: MIT
#include "image/image_set.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <system_error>

#include "image/image_file.hpp"

namespace camsim {

namespace {

constexpr std::uint16_t max_12_bit = 4095;
constexpr std::uint16_t to_12_bits = 16;  ///< from 8 bits, and from 16

std::vector<std::filesystem::path> image_files(std::filesystem::path const& directory) {
    std::vector<std::filesystem::path> files;
    std::error_code error;
    std::filesystem::directory_iterator entries(directory, error);
    for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
        if (is_image_file(entries->path())) {
            files.push_back(entries->path());
        }
    }
    if (error) {
        throw std::runtime_error(directory.string() + ": " + error.message());
    }
    std::ranges::sort(files);
    return files;
}

}  // namespace

std::shared_ptr<image_set const> image_set::read(std::filesystem::path const& directory) {
    std::shared_ptr<image_set> const set(new image_set(std::filesystem::absolute(directory)));
    std::size_t bytes = 0;
    bool any_16_bit_value = false;
    std::vector<std::size_t> files_of_16_bits;
    for (auto const& file : image_files(directory)) {
        try {
            raw_image one = read_image_file(file);
            if (set->images_.empty()) {
                set->width_ = one.width;
                set->height_ = one.height;
            }
            if (one.width != set->width_ || one.height != set->height_) {
                throw std::runtime_error("has " + std::to_string(one.width) + " x " + std::to_string(one.height) +
                                         " pixels, the first image has " + std::to_string(set->width_) + " x " +
                                         std::to_string(set->height_));
            }
            bytes += one.values.size() * sizeof one.values[0];
            if (bytes > max_bytes) {
                throw std::runtime_error("does not fit: all images may have at most " +
                                         std::to_string(max_bytes >> 20U) + " MiB in memory");
            }
            if (one.bits == 8) {
                for (std::uint16_t& value : one.values) {
                    value = static_cast<std::uint16_t>(value * to_12_bits);
                }
            } else {
                files_of_16_bits.push_back(set->images_.size());
                any_16_bit_value = any_16_bit_value || std::ranges::max(one.values) > max_12_bit;
            }
            set->images_.push_back({one.samples, std::move(one.values)});
        } catch (std::runtime_error const& error) {
            throw std::runtime_error(file.string() + ": " + error.what());
        }
    }
    if (set->images_.empty()) {
        throw std::runtime_error(directory.string() + ": contains no TIFF or PNG files");
    }
    if (any_16_bit_value) {
        for (std::size_t const index : files_of_16_bits) {
            for (std::uint16_t& value : set->images_[index].values) {
                value = static_cast<std::uint16_t>(value / to_12_bits);
            }
        }
    }
    return set;
}

std::span<std::uint16_t const> image_set::line(std::size_t index, std::uint32_t y) const {
    image const& one = images_[index];
    std::size_t const length = one.samples * width_;
    return std::span(one.values).subspan(y * length, length);
}

}  // namespace camsim
