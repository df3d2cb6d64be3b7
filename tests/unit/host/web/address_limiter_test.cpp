// SPDX-License-Identifier: MIT
#include "web/address_limiter.hpp"

#include <gtest/gtest.h>

#include <vector>

using namespace mediagrabber;

TEST(AddressLimiter, LimitsAnAddress) {
    address_limiter limiter(3, 2);
    auto const first = limiter.acquire("a");
    auto second = limiter.acquire("a");
    EXPECT_TRUE(first && second);
    EXPECT_FALSE(limiter.acquire("a"));
    EXPECT_TRUE(limiter.acquire("b"));
    second.reset();
    EXPECT_TRUE(limiter.acquire("a"));
}

TEST(AddressLimiter, LimitsAllAddressesTogether) {
    address_limiter limiter(3, 2);
    std::vector<std::shared_ptr<void>> slots;
    for (auto const* const address : {"a", "a", "b"}) {
        slots.push_back(limiter.acquire(address));
    }
    EXPECT_FALSE(limiter.acquire("c"));
    slots.clear();
    EXPECT_TRUE(limiter.acquire("c"));
}
