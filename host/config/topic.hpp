// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "config/configuration.hpp"

namespace mediagrabber {

/// The prefix of all topics of a recording, with its placeholder replaced.
/// \param name  of the recording
std::string topic_of(mqtt_configuration const& chosen, std::string const& name);
/// Checks that messages can be published under a topic. \throws std::invalid_argument with the error
void check_topic(std::string const& topic);

}  // namespace mediagrabber
