// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "status/recording_status.hpp"

namespace mediagrabber {

/// \return the status as one line of JSON without a line end. Bytes that are not valid UTF-8 are replaced by U+FFFD
std::string health_message(recording_status const& status);

}  // namespace mediagrabber
