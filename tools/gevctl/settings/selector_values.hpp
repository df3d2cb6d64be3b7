// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Selectors of a camera while settings are read and written.

#include <string>
#include <utility>
#include <vector>

#include "features/feature_access.hpp"
#include "settings/feature_file.hpp"

namespace gevctl {

/// Changes selectors and restores the values that they had. Writes only what differs, so that a selection that the
/// camera has already needs no control.
class selector_values {
public:
    explicit selector_values(camera_features& camera) : camera_(camera) {}

    /// \throws failure as `camera_features::write`
    void select(selection const& selectors);
    /// Restores all selectors. One that cannot be restored is tried again with the next call.
    /// \return for each that is not restored, why
    std::vector<std::string> restore();
    /// \return the selectors that are not restored, for a camera that no longer responds
    std::vector<std::string> changed() const;

private:
    camera_features& camera_;
    std::vector<std::pair<std::string, feature_value>> initial_;  ///< of selectors that are changed, in that order
};

}  // namespace gevctl
