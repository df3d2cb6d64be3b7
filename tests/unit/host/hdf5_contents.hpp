// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>
#include <hdf5.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// An HDF5 recording as another program reads it: by the file driver of libhdf5. Errors fail the test.
class hdf5_contents {
public:
    /// \param flags  default: as programs open files that they do not expect to grow
    explicit hdf5_contents(std::filesystem::path const& file, unsigned flags = H5F_ACC_RDONLY) {
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
        file_ = H5Fopen(file.c_str(), flags, H5P_DEFAULT);
        EXPECT_GE(file_, 0) << file << " cannot be opened";
    }
    ~hdf5_contents() {
        if (file_ >= 0) {
            H5Fclose(file_);
        }
    }
    hdf5_contents(hdf5_contents const&) = delete;
    hdf5_contents& operator=(hdf5_contents const&) = delete;

    bool is_open() const { return file_ >= 0; }

    /// The dimensions of a dataset in `/entry/data`.
    std::vector<hsize_t> shape(std::string const& name) const {
        hid_t const dataset = H5Dopen2(file_, path(name).c_str(), H5P_DEFAULT);
        EXPECT_GE(dataset, 0) << name;
        if (dataset < 0) {
            return {};
        }
        H5Drefresh(dataset);
        hid_t const space = H5Dget_space(dataset);
        std::vector<hsize_t> sizes(static_cast<std::size_t>(H5Sget_simple_extent_ndims(space)));
        H5Sget_simple_extent_dims(space, sizes.data(), nullptr);
        H5Sclose(space);
        H5Dclose(dataset);
        return sizes;
    }
    /// All values of a dataset in `/entry/data`, converted.
    std::vector<double> numbers(std::string const& name) const { return read<double>(name, H5T_NATIVE_DOUBLE); }
    std::vector<std::uint64_t> integers(std::string const& name) const {
        return read<std::uint64_t>(name, H5T_NATIVE_UINT64);
    }
    /// The first pixel of each frame. Each field has a value of each frame; after a kill, it may have one more.
    std::vector<std::uint64_t> first_pixels() const {
        auto const sizes = shape("frames");
        auto const pixels = integers("frames");
        std::size_t const count = sizes.empty() ? 0 : sizes.front();
        for (char const* const field :
             {"frame", "timestamp_us", "handed_over_us", "announced_us", "ticks", "gain_db", "exposure_us", "counter",
              "width", "height", "stride", "significant_bits", "temperature_c"}) {
            EXPECT_GE(numbers(field).size(), count) << field;
        }
        auto const numbers = integers("frame");
        std::vector<std::uint64_t> first;
        for (std::size_t i = 0; i < count; ++i) {
            first.push_back(pixels.at(i * (pixels.size() / count)));
            EXPECT_NE(numbers.at(i), 0U) << i;
        }
        return first;
    }
    /// The text of a dataset, or of an attribute of an object.
    std::string text(std::string const& object, char const* attribute = nullptr) const {
        hid_t const opened = H5Oopen(file_, object.c_str(), H5P_DEFAULT);
        hid_t const named = attribute == nullptr ? opened : H5Aopen(opened, attribute, H5P_DEFAULT);
        EXPECT_GE(named, 0) << object;
        if (named < 0) {
            return {};
        }
        hid_t const type = attribute == nullptr ? H5Dget_type(named) : H5Aget_type(named);
        std::string value(H5Tget_size(type), '?');
        EXPECT_GE(attribute == nullptr ? H5Dread(named, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, value.data())
                                       : H5Aread(named, type, value.data()),
                  0)
            << object;
        H5Tclose(type);
        if (attribute != nullptr) {
            H5Aclose(named);
        }
        H5Oclose(opened);
        return value.substr(0, value.find('\0'));
    }

private:
    static std::string path(std::string const& name) { return "/entry/data/" + name; }

    template <typename value>
    std::vector<value> read(std::string const& name, hid_t type) const {
        std::size_t count = 1;
        for (hsize_t const size : shape(name)) {
            count *= size;
        }
        std::vector<value> values(count);
        hid_t const dataset = H5Dopen2(file_, path(name).c_str(), H5P_DEFAULT);
        H5Drefresh(dataset);
        EXPECT_GE(H5Dread(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), 0) << name;
        H5Dclose(dataset);
        return values;
    }

    hid_t file_ = H5I_INVALID_HID;
};
