#include "telemetry/topic.hpp"

#include <mosquitto.h>

#include <stdexcept>
#include <string_view>

namespace mediagrabber {

std::string topic_of(configuration const& chosen) {
    constexpr std::string_view placeholder = "{instance}";
    std::string topic = chosen.mqtt_topic;
    for (auto at = topic.find(placeholder); at != topic.npos; at = topic.find(placeholder, at)) {
        topic.replace(at, placeholder.size(), std::to_string(chosen.log_instance));
    }
    return topic;
}

void check_topic(std::string const& topic) {
    bool const plain = mosquitto_pub_topic_check2(topic.data(), topic.size()) == MOSQ_ERR_SUCCESS &&
                       mosquitto_validate_utf8(topic.data(), static_cast<int>(topic.size())) == MOSQ_ERR_SUCCESS;
    if (!plain || topic.front() == '$' || topic.back() == '/') {
        throw std::invalid_argument(
            "\"" + topic + R"(" is no topic to send to, expected one in UTF-8 without +, # and control characters,)" +
            " neither beginning with $ nor ending with /");
    }
}

}  // namespace mediagrabber
