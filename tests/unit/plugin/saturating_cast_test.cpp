// SPDX-License-Identifier: MIT
#include "saturating_cast.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>

namespace {

using Vorn::Support::MediaGrabber::Jai::saturating_cast;

TEST(SaturatingCast, RoundsTowardZero) {
    EXPECT_EQ(saturating_cast<int32_t>(2.99), 2);
    EXPECT_EQ(saturating_cast<int32_t>(-2.99), -2);
    EXPECT_EQ(saturating_cast<uint32_t>(-0.5), 0u);
}

TEST(SaturatingCast, ReturnsTheNearestValueThatFits) {
    EXPECT_EQ(saturating_cast<int32_t>(1e10), INT32_MAX);
    EXPECT_EQ(saturating_cast<int32_t>(-1e10), INT32_MIN);
    EXPECT_EQ(saturating_cast<uint32_t>(-1.0), 0u);
    EXPECT_EQ(saturating_cast<uint64_t>(HUGE_VAL), UINT64_MAX);
    EXPECT_EQ(saturating_cast<int64_t>(-HUGE_VALF), INT64_MIN);
}

TEST(SaturatingCast, SaturatesWhereTheMantissaIsTooShort) {
    EXPECT_EQ(saturating_cast<int64_t>(9223372036854775808.0), INT64_MAX);
    EXPECT_EQ(saturating_cast<int64_t>(9223372036854774784.0), 9223372036854774784);
    EXPECT_EQ(saturating_cast<int32_t>(2147483648.0F), INT32_MAX);
    EXPECT_EQ(saturating_cast<int32_t>(2147483520.0F), 2147483520);
    EXPECT_EQ(saturating_cast<uint64_t>(18446744073709551616.0), UINT64_MAX);
}

TEST(SaturatingCast, ConvertsNotANumberToZero) {
    EXPECT_EQ(saturating_cast<int32_t>(std::nan("")), 0);
}

TEST(SaturatingCast, ADoubleBeyondTheRangeOfFloatBecomesTheLargestFloat) {
    EXPECT_EQ(saturating_cast<float>(1e300), FLT_MAX);
    EXPECT_EQ(saturating_cast<float>(-1e300), -FLT_MAX);
    EXPECT_EQ(saturating_cast<float>(HUGE_VAL), FLT_MAX);
    EXPECT_EQ(saturating_cast<float>(0.1), 0.1F);
    EXPECT_TRUE(std::isnan(saturating_cast<float>(std::nan(""))));
}

}  // namespace
