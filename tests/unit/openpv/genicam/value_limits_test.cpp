// SPDX-License-Identifier: MIT
#include "genicam/value_limits.hpp"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

using openpv::check_limits;
using integer_limits = PvGenParameter::impl::integer_limits;
using float_limits = PvGenParameter::impl::float_limits;

namespace {

constexpr int64_t lowest = std::numeric_limits<int64_t>::min();
constexpr int64_t highest = std::numeric_limits<int64_t>::max();

}  // namespace

TEST(IntegerLimits, AllowBothEnds) {
    EXPECT_TRUE(check_limits("Width", int64_t{16}, integer_limits{16, 2464, 16}).IsOK());
    EXPECT_TRUE(check_limits("Width", int64_t{2464}, integer_limits{16, 2464, 16}).IsOK());
}

TEST(IntegerLimits, RefuseValuesOutsideWithAReason) {
    PvResult const below = check_limits("Width", int64_t{0}, integer_limits{16, 2464, 16});
    EXPECT_EQ(below.GetCode(), PvResult::Code::INVALID_PARAMETER);
    EXPECT_STREQ(below.GetDescription().GetAscii(), "Width cannot be set to 0: it must be from 16 to 2464.");
    EXPECT_EQ(check_limits("Width", int64_t{2480}, integer_limits{16, 2464, 16}).GetCode(),
              PvResult::Code::INVALID_PARAMETER);
}

TEST(IntegerLimits, RefuseValuesBetweenIncrements) {
    PvResult const between = check_limits("Width", int64_t{24}, integer_limits{8, 2464, 12});
    EXPECT_EQ(between.GetCode(), PvResult::Code::INVALID_PARAMETER);
    EXPECT_STREQ(between.GetDescription().GetAscii(), "Width cannot be set to 24: it must be 8 plus a multiple of 12.");
    EXPECT_TRUE(check_limits("Width", int64_t{32}, integer_limits{8, 2464, 12}).IsOK()) << "counted from the minimum";
}

TEST(IntegerLimits, CountIncrementsOverTheFullRangeOfTheType) {
    integer_limits const limits{lowest, highest, 2};
    EXPECT_TRUE(check_limits("X", lowest, limits).IsOK());
    EXPECT_TRUE(check_limits("X", highest - 1, limits).IsOK());
    EXPECT_FALSE(check_limits("X", highest, limits).IsOK());
}

TEST(IntegerLimits, IgnoreAnIncrementBelowOne) {
    EXPECT_TRUE(check_limits("X", int64_t{3}, integer_limits{0, 10, 0}).IsOK());
    EXPECT_TRUE(check_limits("X", int64_t{3}, integer_limits{0, 10, -4}).IsOK());
}

RC_GTEST_PROP(IntegerLimits, AllowExactlyTheGrid, (int64_t minimum, uint16_t steps, uint16_t spare)) {
    int64_t const increment = *rc::gen::inRange<int64_t>(1, 1000);
    int64_t const span = steps * increment + spare % increment;
    RC_PRE(minimum <= highest - span);
    integer_limits const limits{minimum, minimum + span, increment};
    int64_t const offset = *rc::gen::inRange<int64_t>(0, span + 1);
    RC_ASSERT(check_limits("X", minimum + offset, limits).IsOK() == (offset % increment == 0));
}

TEST(FloatLimits, AllowBothEndsAndNothingOutside) {
    float_limits const limits{0.5, 8.0};
    EXPECT_TRUE(check_limits("Gain", 0.5, limits).IsOK());
    EXPECT_TRUE(check_limits("Gain", 8.0, limits).IsOK());
    PvResult const above = check_limits("Gain", 8.25, limits);
    EXPECT_EQ(above.GetCode(), PvResult::Code::INVALID_PARAMETER);
    EXPECT_STREQ(above.GetDescription().GetAscii(), "Gain cannot be set to 8.25: it must be from 0.5 to 8.");
    EXPECT_FALSE(check_limits("Gain", std::nextafter(0.5, 0.0), limits).IsOK());
}

TEST(FloatLimits, RefuseNotANumber) {
    double const infinity = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(check_limits("Gain", std::nan(""), float_limits{-infinity, infinity}).IsOK());
    EXPECT_FALSE(check_limits("Gain", infinity, float_limits{0.0, 8.0}).IsOK());
}
