// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// `gevctl get`, `set`, `execute`, `features`, `watch` and `user-set`.

#include <iosfwd>
#include <string>
#include <vector>

#include "report/failure.hpp"

namespace gevctl {

struct feature_options {
    std::vector<std::string> words;  ///< `[CAMERA] NAME...`
    bool json = false;
};

/// Prints values as `NAME=VALUE`.
exit_status get_command(feature_options options, std::ostream& out);
/// Writes values in the order given and prints what the camera has then. Ends at the first refusal.
exit_status set_command(feature_options options, std::ostream& out, std::ostream& errors);
exit_status execute_command(feature_options options, std::ostream& out);

struct tree_options {
    std::vector<std::string> words;     ///< `[CAMERA] [NAME or CATEGORY]`
    std::string visibility = "expert";  ///< deepest level to show
    bool json = false;
    bool names = false;    ///< names only
    bool entries = false;  ///< of NAME: entries that are available, only
};
exit_status features_command(tree_options options, std::ostream& out);

struct watch_options {
    feature_options features;
    double interval_s = 1.0;
};
/// Prints values when they change. Ends with a signal, or when the camera does not respond.
exit_status watch_command(watch_options options, std::ostream& out);

struct user_set_options {
    std::vector<std::string> words;  ///< `[CAMERA] load|save NAME`
    bool make_default = false;       ///< load this set at power-up, too
};
exit_status user_set_command(user_set_options options, std::ostream& out);

}  // namespace gevctl
