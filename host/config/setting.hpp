// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace mediagrabber {

/// A value of a command line or of a client.
struct setting {
    std::string path;   ///< "gain.db"
    std::string value;  ///< as TOML, or a string without quotes
};

}  // namespace mediagrabber
