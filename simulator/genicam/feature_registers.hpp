// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <vector>

#include "genicam/feature.hpp"
#include "genicam/register_map.hpp"

namespace camsim {

/// Adds the registers of all features that are neither bootstrap registers nor chunk values. Their writes check limits,
/// entries and locks before they call the features' functions.
/// \param locked returns whether features with `locked_while_acquiring` are locked now
void add_feature_registers(register_map& map, std::vector<placed_feature> const& features,
                           std::function<bool()> const& locked);

}  // namespace camsim
