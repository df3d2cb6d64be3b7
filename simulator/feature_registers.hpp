#pragma once

#include <functional>
#include <vector>

#include "feature.hpp"
#include "register_map.hpp"

namespace camsim {

/// Adds the registers of features that are not registers of the standard.
/// \param locked says whether parameters of the transport layer are locked right now
void add_feature_registers(register_map& map, std::vector<placed_feature> const& features,
                           std::function<bool()> const& locked);

}  // namespace camsim
