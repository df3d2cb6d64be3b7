// SPDX-License-Identifier: MIT
#include "telemetry/mqtt_publisher.hpp"

#include <gmock/gmock.h>

#include "config/camera_name.hpp"
#include "config/configuration_file.hpp"
#include "config/topic.hpp"

using namespace mediagrabber;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::string complaint(std::string const& text) {
    try {
        parse_configuration(text, "f");
        return {};
    } catch (configuration_error const& error) {
        return error.what();
    }
}

}  // namespace

TEST(MqttPublisher, HasTheInstanceInItsTopic) {
    configuration values;
    values.log.instance = 12;
    EXPECT_EQ(topic_of(values.mqtt, name_of(values)), "mediagrabber/12");
    values.camera.name = "left";
    values.mqtt.topic = "hall/{name}/{name}/{other}";
    EXPECT_EQ(topic_of(values.mqtt, name_of(values)), "hall/left/left/{other}");
}

TEST(MqttPublisher, RefusesAnInvalidTopic) {
    for (char const* const topic : {"a/#", "+/a", "$SYS/a", "a/", "a\\u0001", "a\\u007F"}) {
        EXPECT_THAT(complaint(std::string("mqtt.topic = \"") + topic + "\""), StartsWith("f:1:14: mqtt.topic: "))
            << topic;
    }
    EXPECT_EQ(complaint("mqtt.topic = \"hall 3/\u00e4\""), "");
}

TEST(MqttPublisher, RefusesAnInvalidBrokerAddress) {
    EXPECT_THAT(complaint("mqtt.broker = \"broker\""),
                StartsWith("f:1:15: mqtt.broker: it does not begin with mqtt:// or mqtts://, expected"));
}

TEST(MqttPublisher, RefusesAPasswordWithoutAUserName) {
    EXPECT_THAT(complaint("mqtt.password_file = \"/none\""), HasSubstr("mqtt.username is required"));
}

TEST(MqttPublisher, FinishesWithoutStart) {
    configuration values;
    values.mqtt.broker = "mqtt://127.0.0.1:1";
    mqtt_publisher tested(values.mqtt, name_of(values));
    tested.finish();
    EXPECT_FALSE(tested.status().connected);
}

TEST(MqttPublisher, ReportsKeysWithoutEffect) {
    EXPECT_THAT(unused_values(parse_configuration("mqtt.frames = true", "f")),
                testing::ElementsAre("mqtt.frames has no effect: it requires mqtt.broker"));
    EXPECT_THAT(unused_values(parse_configuration("mqtt.broker = \"mqtt://a\"\nmqtt.queue_frames = 5", "f")),
                testing::ElementsAre("mqtt.queue_frames has no effect: it requires mqtt.frames = true"));
    EXPECT_TRUE(unused_values(parse_configuration("mqtt.broker = \"mqtt://a\"\nmqtt.frames = true", "f")).empty());
}
