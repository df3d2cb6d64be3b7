// SPDX-License-Identifier: MIT
#include "device/connection_state.hpp"

#include <chrono>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using openpv::connection_state;
using openpv::register_outcome;

namespace {

constexpr uint32_t control = 2;
connection_state::clock::time_point const start{};

}  // namespace

TEST(ConnectionState, IsNotLostWhileTheCameraResponds) {
    connection_state state(start);
    for (auto time = 0s; time < 60s; ++time) {
        state.add(register_outcome::success, control, start + time);
        EXPECT_FALSE(state.lost());
        EXPECT_FALSE(state.is_suspect());
    }
}

TEST(ConnectionState, IsNotLostWithExclusiveAccess) {
    connection_state state(start);
    state.add(register_outcome::success, control, start);
    constexpr uint32_t exclusive = 1;
    state.add(register_outcome::success, exclusive, start + 1s);
    EXPECT_FALSE(state.lost());
    state.add(register_outcome::success, 0, start + 2s);
    EXPECT_TRUE(state.lost());
}

TEST(ConnectionState, IsLostAfterTheSilenceTimeout) {
    connection_state state(start);
    state.add(register_outcome::success, control, start + 10s);
    state.add(register_outcome::timeout, 0, start + 10s + connection_state::silence_timeout - 1ms);
    EXPECT_FALSE(state.lost());
    state.add(register_outcome::timeout, 0, start + 10s + connection_state::silence_timeout);
    EXPECT_TRUE(state.lost());
}

TEST(ConnectionState, IsNotLostWhenTheCameraRespondsInBetween) {
    connection_state state(start);
    state.add(register_outcome::timeout, 0, start + 1900ms);
    state.add(register_outcome::success, control, start + 1950ms);
    state.add(register_outcome::timeout, 0, start + 3900ms);
    EXPECT_FALSE(state.lost());
}

TEST(ConnectionState, IsLostAfterFourConsecutiveRefusals) {
    connection_state state(start);
    for (int i = 1; i < connection_state::max_refusals; ++i) {
        state.add(register_outcome::unreachable, 0, start + i * 100ms);
        EXPECT_FALSE(state.lost());
        EXPECT_TRUE(state.is_suspect());
    }
    state.add(register_outcome::unreachable, 0, start + 400ms);
    EXPECT_TRUE(state.lost());
}

TEST(ConnectionState, CountsConsecutiveRefusalsOnly) {
    connection_state state(start);
    for (int i = 0; i < 20; ++i) {
        state.add(i % 4 == 3 ? register_outcome::success : register_outcome::unreachable, control, start + i * 100ms);
    }
    EXPECT_FALSE(state.lost());
}

TEST(ConnectionState, IsLostWhenTheCameraHasNoController) {
    connection_state state(start);
    state.add(register_outcome::success, 0, start + 500ms);
    EXPECT_TRUE(state.lost());
}

TEST(ConnectionState, TreatsARefusedReadAsAResponse) {
    connection_state state(start);
    state.add(register_outcome::refused, 0, start + 1900ms);
    state.add(register_outcome::timeout, 0, start + 3800ms);
    EXPECT_FALSE(state.lost());
}

TEST(ConnectionState, StaysLost) {
    connection_state state(start);
    state.add(register_outcome::success, 0, start + 500ms);
    state.add(register_outcome::success, control, start + 1000ms);
    EXPECT_TRUE(state.lost());
}

TEST(ConnectionState, IsNotLostWhileTheCameraRespondsToOtherRequests) {
    connection_state state(start);
    for (auto time = 500ms; time < 60s; time += 500ms) {
        state.add_response(start + time);
        state.add(register_outcome::timeout, 0, start + time);
        EXPECT_FALSE(state.lost());
    }
}

TEST(ConnectionState, IsNotLostWithoutControlWhenItIsReadOnly) {
    connection_state state(start, false);
    state.add(register_outcome::success, 0, start + 500ms);
    EXPECT_FALSE(state.lost());
    state.add(register_outcome::timeout, 0, start + 2500ms);
    EXPECT_TRUE(state.lost()) << "silence is a loss nevertheless";
}
