// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "genicam/feature.hpp"

namespace camsim {

/// What a camera with a reduced feature set lacks (`--missing-feature`, `--missing-entry`, `--refuse-write`). For
/// tests of applications with cameras that have fewer features.
struct reduced_feature_set {
    struct entry {
        std::string feature;
        std::string name;
    };

    std::vector<std::string> missing_features{};
    std::vector<entry> missing_entries{};       ///< of enumerations
    std::vector<std::string> refused_writes{};  ///< features described as writable whose writes fail
};

/// Reduces the features of a camera. The bootstrap registers stay as the GigE Vision standard requires: a feature that
/// is one of them can be absent from the GenICam XML only.
/// \return the remaining features
/// \throws std::invalid_argument if a name is unknown or an enumeration would have no entry
std::vector<feature> apply(reduced_feature_set const& reduction, std::vector<feature> features);

}  // namespace camsim
