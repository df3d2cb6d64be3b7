#include "feature.hpp"

namespace camsim {

namespace {

/// Where the registers of features begin that the standard has no address for.
constexpr std::uint32_t first_address = 0x0001'0000;
/// Every feature gets the same room: its value, its minimum, its maximum, 8 bytes each, and 8 to spare.
constexpr std::uint32_t room = 32;

}  // namespace

std::vector<placed_feature> place(std::vector<feature> features) {
    std::vector<placed_feature> placed;
    std::uint32_t address = first_address;
    for (feature& one : features) {
        std::uint32_t const value_address = one.standard ? one.standard->address : address;
        placed.push_back({std::move(one), value_address, address + 8, address + 16});
        address += room;
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
