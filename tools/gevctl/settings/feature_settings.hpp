// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Applies settings to a camera, and reads them from it.

#include <optional>
#include <string>
#include <vector>

#include "features/feature_access.hpp"
#include "report/failure.hpp"
#include "settings/feature_file.hpp"

namespace gevctl {

/// What became of a setting.
struct setting_outcome {
    feature_setting setting;               ///< with the value converted to the feature's type
    std::optional<feature_value> before;   ///< null: could not be read
    std::optional<feature_value> present;  ///< at the last read; null: could not be read
    bool written = false;                  ///< the camera accepted a write
    bool comparable = true;                ///< false: write-only, or not read because that needs control
    std::string reason;                    ///< why the camera has another value; empty if it has the wanted one

    /// One that cannot be compared differs until it has been written.
    bool differs() const { return comparable ? !present || !is_same(*present, setting.value) : !written; }
};

struct settings_outcome {
    std::vector<setting_outcome> settings;  ///< in the order of the file
    unsigned passes = 0;
    /// Why the sequence ended early: the camera does not respond, another program has control, or a signal.
    std::optional<failure> aborted;
    std::vector<std::string> not_restored;  ///< selectors that do not have their former value, and why
};

/// Converts the values to the types of their features. Nothing is read from the camera.
/// \throws failure with the place of each setting that the camera does not have, or that has a value of another type
std::vector<feature_setting> check_settings(camera_features const& camera, std::vector<feature_setting> settings);

/// Reads all settings and changes nothing but selectors, which it restores. What needs control that another program has
/// is not compared.
settings_outcome compare_settings(camera_features& camera, std::vector<feature_setting> const& settings);

/// Writes what differs, in passes over all settings, until a pass finds nothing to write, no write succeeds, or the
/// same settings differ as after an earlier pass. So a setting that the camera refuses because of another one, for
/// example an offset before the width, is written again later. Each pass reads every setting: the last one is the
/// read-back.
///
/// Selectors that name tables are restored at the end of each pass. One that a setting writes takes effect in the order
/// of the file.
/// \param settings checked
/// \return the account of all settings, also if the sequence ends early. A write-only feature is written and counts as
///     applied
settings_outcome apply_settings(camera_features& camera, std::vector<feature_setting> const& settings);

/// What `read_settings` found.
struct read_outcome {
    std::vector<feature_setting> settings;
    std::vector<std::string> left_out;      ///< what does not belong in a file, and why
    std::vector<std::string> missing;       ///< what could not be read, and why
    std::vector<std::string> not_restored;  ///< selectors that do not have their former value, and why
};
/// Reads the features that can be set: those that the camera marks as streamable, or all. Of a feature with selectors,
/// reads the values under each of their entries, which needs control; without, under the present ones.
/// A camera that marks none as streamable: all but those of its identity, for example its persistent address.
/// \param all also features that are not streamable
/// \throws failure if the camera does not respond, or for a signal; selectors are restored before
read_outcome read_settings(camera_features& camera, bool all);

}  // namespace gevctl
