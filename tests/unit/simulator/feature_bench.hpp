// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/byte_order.hpp"
#include "features/camera_features.hpp"
#include "genicam/feature_registers.hpp"
#include "genicam/register_map.hpp"

/// The features of a camera and their registers, accessible by name.
struct feature_bench {
    explicit feature_bench(camsim::camera_options const& options = {})
        : state(options, {}, std::chrono::steady_clock::now()),
          features(camsim::place(camsim::camera_features(state))) {
        camsim::add_feature_registers(registers, features,
                                      [this] { return state.acquiring || state.parameters_locked; });
    }
    camsim::placed_feature const& named(std::string const& name) const {
        for (camsim::placed_feature const& one : features) {
            if (one.declaration.name == name) {
                return one;
            }
        }
        throw std::logic_error("no feature " + name);
    }
    std::uint64_t read(std::uint32_t address, std::size_t bytes) {
        std::vector<std::byte> data(bytes);
        EXPECT_EQ(registers.read(address, data), camsim::gvcp::status::success);
        return bytes == 4 ? camsim::load_be32(data, 0) : camsim::load_be64(data, 0);
    }
    std::uint64_t read(std::string const& name) { return read(named(name).address, 4); }
    double read_float(std::string const& name) { return std::bit_cast<double>(read(named(name).address, 8)); }
    camsim::gvcp::status write(std::string const& name, std::uint32_t value) {
        std::vector<std::byte> data(4);
        camsim::store_be32(data, 0, value);
        return registers.write(named(name).address, data);
    }
    camsim::gvcp::status write_float(std::string const& name, double value) {
        std::vector<std::byte> data(8);
        camsim::store_be64(data, 0, std::bit_cast<std::uint64_t>(value));
        return registers.write(named(name).address, data);
    }

    camsim::camera_state state;
    std::vector<camsim::placed_feature> features;
    camsim::register_map registers;
};

/// The text of a node of the GenICam XML.
inline std::string node(std::string const& xml, std::string const& name) {
    std::size_t const at = xml.find("Name=\"" + name + "\"");
    return at == std::string::npos ? "" : xml.substr(at, xml.find("\n  </", at) - at);
}
