// SPDX-License-Identifier: MIT
#include "lut/equalised_lut.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "sample_frames.hpp"

using namespace mediagrabber;

namespace {

std::vector<std::uint32_t> counted(sample_frame const& frame) {
    std::vector<std::uint32_t> cumulative(std::size_t{1} << frame.record.format->significant_bits);
    count_values({.pixels = frame.bytes.data(),
                  .width = frame.record.width,
                  .height = frame.record.height,
                  .row_length = frame.record.width,
                  .format = frame.record.format},
                 cumulative);
    return cumulative;
}

std::vector<std::uint16_t> table_of(std::vector<std::uint32_t> const& cumulative, unsigned bits, std::size_t entries,
                                    equalisation_limits const& limits = {}) {
    std::vector<std::uint16_t> table(entries, 0xFFFF);
    equalise(cumulative, limits, bits, table);
    return table;
}

/// A distribution as count_values makes it, from how often each value occurs.
std::vector<std::uint32_t> cumulated(std::vector<std::uint32_t> counts) {
    std::partial_sum(counts.begin(), counts.end(), counts.begin());
    return counts;
}

constexpr unsigned table_bits = 12;
constexpr double largest = 4095.0;

/// An entry of the identity LUT with this number of entries.
std::uint16_t on_the_line(std::size_t entry, std::size_t entries) {
    return static_cast<std::uint16_t>(
        std::lround(static_cast<double>(entry) * largest / static_cast<double>(entries - 1)));
}

/// Distributions of all kinds: even ones, peaks, gaps, single values.
rc::Gen<std::vector<std::uint32_t>> distributions(std::size_t values) {
    auto const counts = rc::gen::weightedOneOf<std::uint32_t>(
        {{5, rc::gen::just(0U)}, {3, rc::gen::inRange(0U, 20U)}, {1, rc::gen::inRange(0U, 100'000U)}});
    return rc::gen::map(rc::gen::container<std::vector<std::uint32_t>>(values, counts), cumulated);
}

rc::Gen<equalisation_limits> any_limits() {
    return rc::gen::map(rc::gen::tuple(rc::gen::inRange(100, 2000), rc::gen::inRange(0, 50), rc::gen::inRange(51, 101)),
                        [](auto const& numbers) {
                            auto const [contrast, black, white] = numbers;
                            return equalisation_limits{.contrast = contrast / 100.0,
                                                       .black_share = black / 100.0,
                                                       .white_share = white / 100.0};
                        });
}

}  // namespace

TEST(CountValues, CountsEveryPixelOfEveryFormat) {
    for (auto const& format : frame_formats) {
        auto const frame = make_frame(format, 7, 5);
        auto const cumulative = counted(frame);
        for (std::size_t v = 0; v < cumulative.size(); ++v) {
            auto const expected =
                std::count_if(frame.values.begin(), frame.values.end(), [v](auto value) { return value <= v; });
            ASSERT_EQ(cumulative[v], static_cast<std::uint32_t>(expected)) << format.codec << " " << v;
        }
    }
}

TEST(CountValues, CountsAValueBeyondTheSignificantBitsAsTheMaximum) {
    std::byte const pixel[] = {std::byte{0xFF}, std::byte{0xFF}};
    std::vector<std::uint32_t> cumulative(4096);
    count_values({.pixels = pixel, .width = 1, .height = 1, .row_length = 1, .format = &frame_formats[2]}, cumulative);
    EXPECT_EQ(cumulative[4094], 0U);
    EXPECT_EQ(cumulative[4095], 1U);
}

TEST(CountValues, IgnoresThePaddingOfLines) {
    auto const frame = make_frame(frame_formats[0], 10, 4, 0, [](auto x, auto) { return x < 6 ? 7 : 200; });
    std::vector<std::uint32_t> cumulative(256);
    count_values({.pixels = frame.bytes.data(), .width = 6, .height = 4, .row_length = 10, .format = &frame_formats[0]},
                 cumulative);
    EXPECT_EQ(cumulative[6], 0U);
    EXPECT_EQ(cumulative[7], 24U);
    EXPECT_EQ(cumulative[255], 24U);
}

RC_GTEST_PROP(Equalise, NeverFallsAndReachesFromEndToEnd, ()) {
    auto const bits = *rc::gen::inRange(1U, 17U);
    auto const table = table_of(*distributions(256), bits, 256, *any_limits());
    RC_ASSERT(std::is_sorted(table.begin(), table.end()));
    RC_ASSERT(table.front() == 0);
    RC_ASSERT(table.back() == (1U << bits) - 1U);
}

RC_GTEST_PROP(Equalise, IsNoSteeperThanTheLimit, ()) {
    auto const limits = *any_limits();
    auto const table = table_of(*distributions(256), table_bits, 256, limits);
    double const max_step = limits.contrast * largest / 255.0;
    for (std::size_t i = 0; i + 1 < table.size(); ++i) {
        RC_ASSERT(table[i + 1] - table[i] <= max_step + 1.0);
    }
}

RC_GTEST_PROP(Equalise, LeavesAnEvenDistributionAsItIs, ()) {
    auto const each = *rc::gen::inRange(1U, 10'000U);
    auto const contrast = *rc::gen::inRange(100, 2000) / 100.0;
    auto const table =
        table_of(cumulated(std::vector<std::uint32_t>(256, each)), table_bits, 256, {.contrast = contrast});
    for (std::size_t i = 0; i < table.size(); ++i) {
        RC_ASSERT(table[i] == on_the_line(i, 256));
    }
}

RC_GTEST_PROP(Equalise, IsTheStraightLineWhereNoMoreThanThatIsAllowed, ()) {
    auto const table = table_of(*distributions(256), table_bits, 256, {.contrast = 1.0});
    for (std::size_t i = 0; i < table.size(); ++i) {
        RC_ASSERT(std::abs(table[i] - on_the_line(i, 256)) <= 1);
    }
}

RC_GTEST_PROP(Equalise, IsPlainEqualisationWhereTheLimitIsFarAway, ()) {
    auto counts = *rc::gen::container<std::vector<std::uint32_t>>(256, rc::gen::inRange(0U, 1000U));
    counts.front() = 1;
    counts.back() = 1;
    auto const cumulative = cumulated(counts);
    auto const table = table_of(cumulative, table_bits, 256, {.contrast = 1000.0});
    for (std::size_t i = 0; i < table.size(); ++i) {
        double const share = static_cast<double>(cumulative[i] - 1) / static_cast<double>(cumulative.back() - 1);
        RC_ASSERT(std::abs(table[i] - share * largest) <= 1.0);
    }
}

RC_GTEST_PROP(Equalise, DoesNotDependOnTheImageSize, ()) {
    auto counts = *rc::gen::container<std::vector<std::uint32_t>>(256, rc::gen::inRange(0U, 1000U));
    auto const limits = *any_limits();
    auto const small = table_of(cumulated(counts), table_bits, 256, limits);
    std::transform(counts.begin(), counts.end(), counts.begin(), [](auto count) { return count * 16; });
    auto const large = table_of(cumulated(counts), table_bits, 256, limits);
    for (std::size_t i = 0; i < small.size(); ++i) {
        RC_ASSERT(std::abs(small[i] - large[i]) <= 1);
    }
}

TEST(Equalise, GivesMoreContrastToValuesThatOccurOften) {
    std::vector<std::uint32_t> counts(256, 1);
    std::fill(counts.begin() + 100, counts.begin() + 120, 100);
    auto const table = table_of(cumulated(counts), table_bits, 256);
    EXPECT_GT(table[119] - table[100], 3 * (on_the_line(119, 256) - on_the_line(100, 256)));
    EXPECT_LT(table[50], on_the_line(50, 256));
}

TEST(Equalise, MakesTheDarkestAndTheBrightestPixelsBlackAndWhite) {
    auto const even = cumulated(std::vector<std::uint32_t>(256, 100));
    auto const table = table_of(even, table_bits, 256, {.contrast = 4.0, .black_share = 0.1, .white_share = 0.8});
    auto const black = static_cast<std::size_t>(std::count(table.begin(), table.end(), 0));
    auto const white = static_cast<std::size_t>(std::count(table.begin(), table.end(), 4095));
    EXPECT_NEAR(static_cast<double>(black), 256 * 0.1, 1.5);
    EXPECT_NEAR(static_cast<double>(white), 256 * 0.2, 1.5);
    EXPECT_NEAR(table[115], 2048, 40);
}

TEST(Equalise, PrefersTheContrastLimitToFullRange) {
    std::vector<std::uint32_t> counts(256, 0);
    counts[100] = 1000;
    counts[104] = 1000;
    auto const table =
        table_of(cumulated(counts), table_bits, 256, {.contrast = 2.0, .black_share = 0.0, .white_share = 1.0});
    EXPECT_NEAR(table[104] - table[100], 4 * 2.0 * largest / 255.0, 2.0);
    EXPECT_GT(table[100], 0);
    EXPECT_LT(table[104], 4095);
}

TEST(Equalise, IsTheIdentityForAUniformOrEmptyHistogram) {
    std::vector<std::uint32_t> counts(256, 0);
    for (std::size_t const value : {0U, 77U, 255U}) {
        auto single = counts;
        single[value] = 1000;
        EXPECT_EQ(table_of(cumulated(single), table_bits, 256)[128], on_the_line(128, 256)) << value;
    }
    EXPECT_EQ(table_of(counts, table_bits, 256)[128], on_the_line(128, 256));
    EXPECT_EQ(table_of({}, table_bits, 256)[128], on_the_line(128, 256));
}

TEST(Equalise, AcceptsAFinerHistogram) {
    auto const table = table_of(cumulated(std::vector<std::uint32_t>(4096, 1)), table_bits, 256);
    for (std::size_t i = 0; i < table.size(); ++i) {
        EXPECT_EQ(table[i], on_the_line(i, 256));
    }
}

TEST(Equalise, WorksForEveryNumberOfEntries) {
    for (std::size_t const entries : {2U, 3U, 16U, 1024U, 4096U, 65'536U}) {
        auto const table = table_of(cumulated(std::vector<std::uint32_t>(4096, 3)), 16, entries);
        EXPECT_EQ(table.front(), 0);
        EXPECT_EQ(table.back(), 65'535);
    }
}
