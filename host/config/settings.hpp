// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "base/exit_status.hpp"
#include "config/configuration.hpp"
#include "config/configuration_schema.hpp"
#include "config/setting.hpp"

namespace mediagrabber {

/// Thrown for a setting that cannot be applied. `status()` is the exit status of `mediagrabber set`.
class setting_refused : public std::runtime_error {
public:
    setting_refused(exit_status status, std::string const& what) : std::runtime_error(what), status_(status) {}
    exit_status status() const { return status_; }

private:
    exit_status status_;
};

/// Parses KEY=VALUE; neither key nor value is checked.
/// \throws setting_refused if the key is missing
setting parse_setting(std::string const& text);

/// Applies settings to a configuration: all of them, or none if one is refused.
/// \param max_effect  keys whose change needs more than this are refused
/// \throws setting_refused
void apply_settings(std::vector<setting> const& settings, configuration& to,
                    change_effect max_effect = change_effect::reconfiguration);

/// The strongest effect that any of the settings needs.
change_effect needed_for(std::vector<setting> const& settings);

}  // namespace mediagrabber
