#pragma once

#include <string>

#include "configuration.hpp"

namespace mediagrabber {

/// The topic that all of a recording's topics begin with.
std::string topic_of(configuration const& chosen);
/// Sees to it that messages can be sent under a topic. \throws std::invalid_argument with what is wrong
void check_topic(std::string const& topic);

}  // namespace mediagrabber
