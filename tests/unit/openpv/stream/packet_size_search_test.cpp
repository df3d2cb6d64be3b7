// SPDX-License-Identifier: MIT
#include "stream/packet_size_search.hpp"

#include <algorithm>
#include <optional>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

using openpv::find_max_passing;
using openpv::packet_size_limits;

namespace {

/// A network that passes packets up to a size, and records the sizes that were tried.
struct network {
    uint32_t max_bytes;
    std::vector<uint32_t> tried;

    std::optional<uint32_t> probe(packet_size_limits const& limits) {
        return find_max_passing(limits, [this](uint32_t bytes) {
            tried.push_back(bytes);
            return bytes <= max_bytes;
        });
    }
};

}  // namespace

TEST(PacketSizeSearch, StopsWhenTheMaximumPasses) {
    network jumbo{9000, {}};
    EXPECT_EQ(jumbo.probe({576, 8996, 4}), 8996U);
    EXPECT_EQ(jumbo.tried, std::vector<uint32_t>{8996});
}

TEST(PacketSizeSearch, StopsWhenTheMinimumDoesNotPass) {
    network silent{0, {}};
    EXPECT_EQ(silent.probe({576, 9000, 4}), std::nullopt);
    EXPECT_EQ(silent.tried, (std::vector<uint32_t>{9000, 576}));
}

TEST(PacketSizeSearch, FindsTheLargestPacketOfOrdinaryEthernet) {
    network ethernet{1500, {}};
    EXPECT_EQ(ethernet.probe({576, 9000, 4}), 1500U);
}

TEST(PacketSizeSearch, StaysOnTheCamerasGrid) {
    network ethernet{1500, {}};
    EXPECT_EQ(ethernet.probe({220, 16404, 8}), 1500U);
    EXPECT_EQ((network{1499, {}}).probe({220, 16404, 8}), 1492U);
    EXPECT_EQ((network{9000, {}}).probe({576, 581, 4}), 580U) << "a maximum off the grid is not tried";
}

TEST(PacketSizeSearch, SupportsACameraWithOneSize) {
    EXPECT_EQ((network{9000, {}}).probe({1500, 1500, 4}), 1500U);
    EXPECT_EQ((network{1400, {}}).probe({1500, 1500, 4}), std::nullopt);
}

RC_GTEST_PROP(PacketSizeSearch, FindsTheLargestOnTheGridInFewTries, ()) {
    auto const minimum = *rc::gen::inRange<uint32_t>(46, 9000);
    auto const maximum = *rc::gen::inRange<uint32_t>(minimum, 65536);
    auto const increment = *rc::gen::inRange<uint32_t>(1, 64);
    network some{*rc::gen::inRange<uint32_t>(0, 65536), {}};
    std::optional<uint32_t> expected;
    for (uint32_t size = minimum; size <= std::min(maximum, some.max_bytes); size += increment) {
        expected = size;
    }
    RC_ASSERT(some.probe({minimum, maximum, increment}) == expected);
    RC_ASSERT(some.tried.size() <= 18U);
}
