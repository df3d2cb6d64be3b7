#pragma once

#include <string>
#include <vector>

#include "feature.hpp"

namespace camsim {

/// Writes the GenICam description (GenApi schema 1.1) of a camera with these features.
std::string genicam_xml(std::string const& vendor, std::string const& model,
                        std::vector<placed_feature> const& features);

}  // namespace camsim
