// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "plugin/reported_camera.hpp"

using namespace mediagrabber;

TEST(ReportedCameras, AreParsedFromALog) {
    auto const cameras = find_reported_cameras(
        "[X:d]: init\n[X:i]: Printing all the devices information found:\n"
        "[X:i]: == 0. Camera Device Information ==\n[X:i]: ====\n[X:i]: \tDeviceModel        : A : B\n"
        "[X:i]: \tDeviceSerial       : 1\n[X:i]: == 0. Camera Device Information ==\n[X:i]: ====\n"
        "[X:i]: \tDeviceModel        : C\n[X:i]: fail: target : none\n");
    ASSERT_EQ(cameras.size(), 2U);
    ASSERT_EQ(cameras[0].properties.size(), 2U);
    EXPECT_EQ(cameras[0].properties[0].label, "DeviceModel");
    EXPECT_EQ(cameras[0].properties[0].value, "A : B");
    EXPECT_EQ(cameras[0].properties[1].value, "1");
    ASSERT_GE(cameras[1].properties.size(), 1U);
    EXPECT_EQ(cameras[1].properties[0].value, "C");
}

TEST(ReportedCameras, AreEmptyIfNoneIsReported) {
    EXPECT_TRUE(find_reported_cameras("").empty());
    EXPECT_TRUE(find_reported_cameras("[X:i]: a : b\n====\n").empty());
}

TEST(ReportedCameras, EndAtTheFirstOtherLine) {
    auto const cameras = find_reported_cameras("== 1. Camera Device Information ==\nA : 1\nsomething else\nB : 2\n");
    ASSERT_EQ(cameras.size(), 1U);
    EXPECT_EQ(cameras[0].properties.size(), 1U);
}
