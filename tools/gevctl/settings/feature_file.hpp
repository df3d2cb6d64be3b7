// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Feature files: values of camera features in TOML, written by people and by `gevctl dump`.

#include <filesystem>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "features/feature_value.hpp"

namespace gevctl {

/// Selectors and their values, the outermost first. Empty for a feature without a selector.
using selection = std::vector<std::pair<std::string, std::string>>;

/// A feature and the value that it is to have.
struct feature_setting {
    selection selectors;
    std::string name;
    feature_value value;
    std::string place;  ///< `FILE:LINE`, for messages
};
/// \return for example `Gain[GainSelector=AnalogAll]`
std::string to_text(selection const& selectors, std::string const& name);
std::string to_text(feature_setting const& one);

/// A feature file. In TOML, `Width = 1280` sets a feature, and the table `[GainSelector.AnalogAll]` contains the
/// features that are set while `GainSelector` is `AnalogAll`. Tables may be nested for features with two selectors.
struct feature_file {
    std::string camera;  ///< value of the key `camera`: the camera that the file is for; may be empty
    std::vector<feature_setting> settings;  ///< in the order of the file
};

/// \throws failure with the place of each error
feature_file parse_feature_file(std::string const& text, std::string const& name);
/// \param path `-` is the standard input
feature_file read_feature_file(std::filesystem::path const& path);

/// Writes settings without selectors first, because TOML has tables at the end; otherwise in their order.
/// \param header comment lines
void write_feature_file(std::ostream& out, std::vector<std::string> const& header,
                        std::vector<feature_setting> const& settings);

}  // namespace gevctl
