// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "genicam/feature.hpp"

namespace camsim {

/// Generates the GenICam XML (GenApi schema 1.1) of a camera: for each feature its node, the node of its register, and
/// nodes for the registers of variable limits.
/// \param vendor,model attributes of the root element; other characters than letters and digits become underscores
std::string genicam_xml(std::string const& vendor, std::string const& model,
                        std::vector<placed_feature> const& features);

}  // namespace camsim
