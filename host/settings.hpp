#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "configuration.hpp"
#include "configuration_schema.hpp"
#include "exit_status.hpp"

namespace mediagrabber {

/// A value that is to be changed while frames arrive.
struct setting {
    std::string path;   ///< "gain.db"
    std::string value;  ///< as TOML, or a text without quotes
};

/// A setting that is refused, and with which status.
class setting_refused : public std::runtime_error {
public:
    setting_refused(exit_status status, std::string const& what) : std::runtime_error(what), status_(status) {}
    exit_status status() const { return status_; }

private:
    exit_status status_;
};

/// Reads KEY=VALUE. \throws setting_refused
setting parse_setting(std::string const& text);

/// Checks and makes changes to a configuration; all of them or none.
/// \param most  what the changes may need
/// \throws setting_refused
void apply_settings(std::vector<setting> const& settings, configuration& to,
                    change_effect most = change_effect::reconfiguration);

/// What the settings need at most.
change_effect needed_for(std::vector<setting> const& settings);

}  // namespace mediagrabber
