// SPDX-License-Identifier: MIT
#include "control/value_query.hpp"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

using namespace mediagrabber;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

configuration some_values() {
    configuration values;
    values.gain.db = 6.0F;
    values.camera.model = "M";
    values.lines.push_back({.pin = 5, .source = line_source::low, .inverted = false});
    return values;
}

}  // namespace

TEST(ValueQuery, ReturnsConfiguredValuesAndThoseOfTheCamera) {
    known_values camera;
    camera.latest.gain_db = 5.5F;
    camera.latest.exposure_us = 250.0F;
    camera.delivery[delivery_check::width] = {.key = "image.width", .requested = {}, .actual = 640.0, .differs = false};
    auto const answer = read_values({"gain.db", "camera.model", "image.width", "exposure.time_us", "gain.limits_db"},
                                    some_values(), camera);
    EXPECT_EQ(answer.status, exit_status::success);
    EXPECT_THAT(answer.lines,
                ElementsAre("gain.db = 6  # the camera has 5.5", "camera.model = \"M\"",
                            "# image.width is not configured: as set in the camera; the camera has 640",
                            "# exposure.time_us is not configured: as set in the camera; the camera has 250",
                            "# gain.limits_db is not configured: as set in the camera"));
    auto const result = json::parse(answer.result);
    EXPECT_EQ(result["gain.db"], (json{{"configured", 6}, {"actual", 5.5}}));
    EXPECT_EQ(result["camera.model"], (json{{"configured", "M"}}));
    EXPECT_EQ(result["image.width"], (json{{"configured", nullptr}, {"actual", 640}}));
}

TEST(ValueQuery, ReturnsAllLines) {
    auto const answer = read_values({"line"}, some_values(), {});
    EXPECT_THAT(answer.lines, ElementsAre("line = {pin = \"Out1\", source = \"Low\", inverted = false}"));
    EXPECT_EQ(json::parse(answer.result)["line"]["configured"][0]["pin"], "Out1");
    EXPECT_THAT(read_values({"line"}, configuration{}, {}).lines, ElementsAre("# line is not configured"));
}

TEST(ValueQuery, RefusesAnUnknownKeyWithTheNearestOnes) {
    try {
        read_values({"gain.db", "gain.bd"}, some_values(), {});
        FAIL();
    } catch (setting_refused const& refused) {
        EXPECT_EQ(refused.status(), exit_status::usage);
        EXPECT_THAT(refused.what(), HasSubstr("gain.bd: unknown key; did you mean gain.db?"));
    }
}
