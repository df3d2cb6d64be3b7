#pragma once

#include <string>

#include "live/recording_status.hpp"

namespace mediagrabber {

/// How a recording goes, as a line of JSON without its end. Whatever is no UTF-8 in it is replaced.
std::string health_message(recording_status const& status);

}  // namespace mediagrabber
