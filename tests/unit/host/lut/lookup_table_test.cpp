// SPDX-License-Identifier: MIT
#include "lut/lookup_table.hpp"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

using namespace mediagrabber;
using testing::HasSubstr;

namespace {

raw_lut ramp(std::size_t count, double last, std::optional<unsigned> bits) {
    raw_lut table{.values = std::vector<double>(count), .bits = bits};
    for (std::size_t i = 0; i < count; ++i) {
        table.values[i] = std::round(last * static_cast<double>(i) / static_cast<double>(count - 1));
    }
    return table;
}

std::string refusal(raw_lut const& raw, std::optional<unsigned> bits = {}) {
    try {
        scaled_lut(raw, bits);
        return {};
    } catch (std::runtime_error const& error) {
        return error.what();
    }
}

}  // namespace

TEST(LookupTable, IsScaledToTwelveBits) {
    EXPECT_EQ(scaled_lut(ramp(256, 255, 8), {}).back(), 4095);
    EXPECT_EQ(scaled_lut(ramp(256, 65'535, 16), {}).back(), 4095);
    EXPECT_EQ(scaled_lut(ramp(4096, 4095, 16), 12).back(), 4095);
    EXPECT_EQ(scaled_lut(ramp(4096, 4095, 16), 12)[1000], 1000);
    raw_lut fractions{.values = std::vector<double>(256, 0.5), .bits = {}};
    EXPECT_EQ(scaled_lut(fractions, {})[0], 2048);
}

TEST(LookupTable, IgnoresTheConfiguredBitsForFractions) {
    EXPECT_EQ(scaled_lut({.values = std::vector<double>(256, 1.0), .bits = {}}, 8).back(), 4095);
}

TEST(LookupTable, KeepsItsEntriesIfTheirNumberIsAMultipleOf256) {
    for (std::size_t const count : {256U, 512U, 4096U, 65'280U}) {
        EXPECT_EQ(scaled_lut(ramp(count, 65'535, 16), {}).size(), count);
    }
}

TEST(LookupTable, KeepsEverySecondOf65536Entries) {
    auto const table = scaled_lut(ramp(65'536, 65'535, 16), {});
    ASSERT_EQ(table.size(), 32'768U);
    for (std::size_t i = 0; i < table.size(); i += 128) {
        EXPECT_EQ(table[i], std::lround(static_cast<double>(2 * i) / 65'535.0 * 4095.0));
    }
}

TEST(LookupTable, IsInterpolatedFromAnyOtherSize) {
    for (std::size_t const count : {257U, 300U, 1000U, 4095U, 65'535U}) {
        auto const table = scaled_lut(ramp(count, 4095, 16), 12);
        ASSERT_EQ(table.size(), 256U);
        for (std::size_t i = 0; i < table.size(); ++i) {
            EXPECT_NEAR(table[i], static_cast<double>(i) * 4095.0 / 255.0, 1.0) << count << " " << i;
        }
    }
}

RC_GTEST_PROP(LookupTable, PreservesItsEndsAndItsOrder, ()) {
    auto const count = *rc::gen::inRange<std::size_t>(256, 2000);
    auto values = *rc::gen::container<std::vector<double>>(
        count, rc::gen::map(rc::gen::inRange(0, 4096), [](int v) { return static_cast<double>(v); }));
    std::sort(values.begin(), values.end());
    auto const table = scaled_lut({.values = values, .bits = 16}, 12);
    RC_ASSERT(std::is_sorted(table.begin(), table.end()));
    RC_ASSERT(table.front() == static_cast<std::uint16_t>(values.front()));
    if (count % 256 != 0) {
        RC_ASSERT(table.back() == static_cast<std::uint16_t>(values.back()));
    }
}

TEST(LookupTable, RefusesAnInvalidSize) {
    EXPECT_EQ(refusal(ramp(255, 255, 8)), "has 255 entries, expected 256 to 65536");
    EXPECT_EQ(refusal(ramp(65'537, 255, 8)), "has 65537 entries, expected 256 to 65536");
    EXPECT_EQ(refusal({}), "has 0 entries, expected 256 to 65536");
}

TEST(LookupTable, RefusesAValueBeyondFullScale) {
    auto table = ramp(256, 255, 8);
    table.values[7] = 256.0;
    EXPECT_THAT(refusal(table), HasSubstr("entry 7 is 256.0"));
    EXPECT_THAT(refusal(table), HasSubstr("expected 0 to 255"));
    EXPECT_EQ(refusal(table, 9), "");
    for (double const bad : {-1.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
        table.values[7] = bad;
        EXPECT_THAT(refusal(table), HasSubstr("entry 7 is"));
    }
    EXPECT_THAT(refusal({.values = std::vector<double>(256, 1.5), .bits = {}}), HasSubstr("expected 0 to 1"));
}

TEST(InternedLut, HasOneAddressPerContent) {
    auto const* const first = interned_lut(lookup_table(256, 1));
    auto const* const other = interned_lut(lookup_table(256, 2));
    EXPECT_NE(first, other);
    EXPECT_EQ(interned_lut(lookup_table(256, 1)), first);
    EXPECT_EQ((*first)[0], 1);
}
