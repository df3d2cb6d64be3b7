// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "config/configuration.hpp"

namespace mediagrabber {

/// The prefix of all topics of a recording, with its placeholder replaced.
/// \param instance  log.instance
std::string topic_of(mqtt_configuration const& chosen, std::uint32_t instance);
/// Checks that messages can be published under a topic. \throws std::invalid_argument with the error
void check_topic(std::string const& topic);

}  // namespace mediagrabber
