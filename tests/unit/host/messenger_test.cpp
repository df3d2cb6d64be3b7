#include "telemetry/messenger.hpp"

#include <gmock/gmock.h>

#include "configuration_file.hpp"
#include "telemetry/topic.hpp"

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

TEST(Messenger, HasTheInstanceInItsTopic) {
    configuration values;
    values.log_instance = 12;
    EXPECT_EQ(topic_of(values), "mediagrabber/12");
    values.mqtt_topic = "hall/{instance}/{instance}/{other}";
    EXPECT_EQ(topic_of(values), "hall/12/12/{other}");
}

TEST(Messenger, RefusesATopicThatNothingCanBeSentTo) {
    for (char const* const topic : {"a/#", "+/a", "$SYS/a", "a/", "a\\u0001", "a\\u007F"}) {
        EXPECT_THAT(complaint(std::string("mqtt.topic = \"") + topic + "\""), StartsWith("f:1:14: mqtt.topic: "))
            << topic;
    }
    EXPECT_EQ(complaint("mqtt.topic = \"hall 3/\u00e4\""), "");
}

TEST(Messenger, RefusesABrokersAddressThatIsNone) {
    EXPECT_THAT(complaint("mqtt.broker = \"broker\""),
                StartsWith("f:1:15: mqtt.broker: it does not begin with mqtt:// or mqtts://, expected"));
}

TEST(Messenger, RefusesAPasswordOfNobody) {
    EXPECT_THAT(complaint("mqtt.password_file = \"/none\""), HasSubstr("expected mqtt.username beside it"));
}

TEST(Messenger, ThatBeginsNothingHasNothingToFinish) {
    configuration values;
    values.mqtt_broker = "mqtt://127.0.0.1:1";
    messenger tested(values);
    tested.finish();
    EXPECT_FALSE(tested.status().connected);
}

TEST(Messenger, SaysWhatHasNoEffect) {
    EXPECT_THAT(unused_values(parse_configuration("mqtt.frames = true", "f")),
                testing::ElementsAre("mqtt.frames has no effect: it needs mqtt.broker"));
    EXPECT_THAT(unused_values(parse_configuration("mqtt.broker = \"mqtt://a\"\nmqtt.queue = 5", "f")),
                testing::ElementsAre("mqtt.queue has no effect: it needs mqtt.frames = true"));
    EXPECT_TRUE(unused_values(parse_configuration("mqtt.broker = \"mqtt://a\"\nmqtt.frames = true", "f")).empty());
}
