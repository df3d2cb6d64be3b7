// SPDX-License-Identifier: MIT
#include "device/control_channel.hpp"

#include <gtest/gtest.h>

using camsim::control_channel;
using camsim::endpoint;
using camsim::gvcp::status;
using namespace std::chrono_literals;

namespace {

constexpr endpoint first{0x0A000001, 5000};
constexpr endpoint second{0x0A000002, 5000};
constexpr endpoint first_on_another_port{0x0A000001, 5001};
constexpr control_channel::time_point start{};

}  // namespace

TEST(ControlChannel, AllowsReadsButNoWritesWithoutAPrimaryApplication) {
    control_channel const channel;
    EXPECT_TRUE(channel.may_read(first));
    EXPECT_FALSE(channel.may_write(first));
    EXPECT_FALSE(channel.expiry(500ms));
}

TEST(ControlChannel, GivesControlToTheFirstApplication) {
    control_channel channel;
    EXPECT_EQ(channel.write_privilege(first, control_channel::control_access, start), status::success);
    EXPECT_EQ(channel.write_privilege(second, control_channel::control_access, start), status::access_denied);
    EXPECT_EQ(channel.write_privilege(second, 0, start), status::access_denied);
    EXPECT_TRUE(channel.may_write(first));
    EXPECT_FALSE(channel.may_write(second));
    EXPECT_FALSE(channel.may_write(first_on_another_port));
    EXPECT_TRUE(channel.may_read(second));
    EXPECT_EQ(channel.privilege(), 2U);
}

TEST(ControlChannel, DeniesReadsOfOtherApplicationsUnderExclusiveAccess) {
    control_channel channel;
    channel.write_privilege(first, control_channel::exclusive_access, start);
    EXPECT_FALSE(channel.may_read(second));
    EXPECT_TRUE(channel.may_read(first));
    channel.write_privilege(first, control_channel::control_access, start);
    EXPECT_TRUE(channel.may_read(second));
}

TEST(ControlChannel, IsFreeAfterRelease) {
    control_channel channel;
    channel.write_privilege(first, control_channel::control_access, start);
    EXPECT_EQ(channel.write_privilege(first, 0, start), status::success);
    EXPECT_FALSE(channel.primary());
    EXPECT_EQ(channel.write_privilege(second, control_channel::control_access, start), status::success);
}

TEST(ControlChannel, IgnoresSwitchoverBits) {
    control_channel channel;
    channel.write_privilege(first, 0x12340006, start);
    EXPECT_EQ(channel.privilege(), 2U);
}

TEST(ControlChannel, ExpiresATimeoutAfterTheLastCommand) {
    control_channel channel;
    channel.write_privilege(first, control_channel::control_access, start);
    EXPECT_EQ(channel.expiry(500ms), start + 500ms);
    channel.on_command(second, start + 400ms);
    EXPECT_EQ(channel.expiry(500ms), start + 500ms);
    channel.on_command(first, start + 400ms);
    EXPECT_EQ(channel.expiry(500ms), start + 900ms);
}
