// SPDX-License-Identifier: MIT
#include "config/camera_name.hpp"

#include <gmock/gmock.h>

#include <cstdlib>

#include "base/failures.hpp"

using namespace mediagrabber;
using testing::HasSubstr;

namespace {

/// Sets the variable during its lifetime.
class name_in_environment {
public:
    explicit name_in_environment(char const* name) { setenv(camera_name_variable, name, 1); }
    ~name_in_environment() { unsetenv(camera_name_variable); }
    name_in_environment(name_in_environment const&) = delete;
    name_in_environment& operator=(name_in_environment const&) = delete;
};

}  // namespace

TEST(CameraName, IsTheNumberOfTheInstanceByDefault) {
    configuration values;
    values.log.instance = 7;
    EXPECT_EQ(name_of(values), "7");
    values.camera.name = "left";
    EXPECT_EQ(name_of(values), "left");
}

TEST(CameraName, IsThatOfTheServiceUnlessConfigured) {
    name_in_environment const service("left");
    configuration values;
    take_name_from_environment(values);
    EXPECT_EQ(name_of(values), "left");
    values.camera.name = "configured";
    take_name_from_environment(values);
    EXPECT_EQ(name_of(values), "configured");
}

TEST(CameraName, OfAServiceIsChecked) {
    name_in_environment const service("a/b");
    configuration values;
    try {
        take_name_from_environment(values);
        FAIL();
    } catch (usage_error const& error) {
        EXPECT_THAT(error.what(),
                    HasSubstr("$MEDIAGRABBER_NAME: \"a/b\" is not valid, expected a name of 1 to 32 bytes"));
    }
}

TEST(CameraName, IsValidUtf8) {
    EXPECT_TRUE(is_camera_name("\xC3\xA4"));
    EXPECT_FALSE(is_camera_name("\xC3"));
    EXPECT_FALSE(is_camera_name("a\x7F"));
}

TEST(CameraName, ReplacesItsPlaceholder) {
    EXPECT_EQ(with_name("/data/{name}/{time}-{name}", "left"), "/data/left/{time}-left");
    EXPECT_EQ(with_name("/data", "left"), "/data");
}
