#pragma once

#include <string>
#include <vector>

#include "feature.hpp"

namespace camsim {

/// What a camera is made without, or made to refuse: how an application is seen to cope with a poorer camera.
struct feature_refusals {
    struct entry {
        std::string feature;
        std::string name;
    };

    std::vector<std::string> absent{};  ///< features
    std::vector<entry> entries{};       ///< of enumerations
    std::vector<std::string> writes{};  ///< features that are described as writable and refuse every write
};

std::vector<feature> apply(feature_refusals const& refusals, std::vector<feature> features);

}  // namespace camsim
