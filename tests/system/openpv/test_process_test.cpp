// SPDX-License-Identifier: MIT
#include "test_process.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

TEST(TestProcess, FailsTheTestIfASanitizerEndedTheProcess) {
    EXPECT_NONFATAL_FAILURE(test_process({"sh", "-c", "exit 99"}).wait(), "a sanitizer ended the process");
    EXPECT_EQ(test_process({"sh", "-c", "exit 7"}).wait(), 7);
}
