// SPDX-License-Identifier: MIT
#include "genicam/feature.hpp"

namespace camsim {

namespace {

/// Start of the manufacturer-specific register space; GigE Vision reserves 0x0000 to 0x9FFF for bootstrap registers.
constexpr std::uint32_t first_address = 0x0001'0000;
/// Bytes per feature: value, minimum and maximum have 8 each; 8 are unused.
constexpr std::uint32_t bytes_per_feature = 32;

}  // namespace

std::vector<placed_feature> place(std::vector<feature> features) {
    std::vector<placed_feature> placed;
    std::uint32_t address = first_address;
    for (feature& one : features) {
        std::uint32_t const value_address = one.standard ? one.standard->address : address;
        placed.push_back({std::move(one), value_address, address + 8, address + 16});
        address += bytes_per_feature;
    }
    return placed;
}

std::vector<std::string> feature_names(std::vector<feature> const& features) {
    std::vector<std::string> names;
    names.reserve(features.size());
    for (feature const& one : features) {
        names.push_back(one.name);
    }
    return names;
}

}  // namespace camsim
