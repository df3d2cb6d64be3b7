// SPDX-License-Identifier: MIT
#include "config/topic.hpp"

#include <fmt/format.h>
#include <mosquitto.h>

#include <stdexcept>

#include "config/camera_name.hpp"

namespace mediagrabber {

std::string topic_of(mqtt_configuration const& chosen, std::string const& name) {
    return with_name(chosen.topic, name);
}

void check_topic(std::string const& topic) {
    bool const plain = mosquitto_pub_topic_check2(topic.data(), topic.size()) == MOSQ_ERR_SUCCESS &&
                       mosquitto_validate_utf8(topic.data(), static_cast<int>(topic.size())) == MOSQ_ERR_SUCCESS;
    if (!plain || topic.front() == '$' || topic.back() == '/') {
        throw std::invalid_argument(fmt::format(
            "\"{}\" is not a topic to publish to, expected UTF-8 without +, #, control characters, a leading $"
            " and a trailing /",
            topic));
    }
}

}  // namespace mediagrabber
