// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "test_camera.hpp"

TEST(Layer, MayBeLoadedUsedAndUnloadedRepeatedly) {
    auto const camera = start_camsim();
    PvString const id = find_only_camera();
    EXPECT_EQ(test_process({RELOAD_HOST, RELOAD_MODULE, id.GetAscii()}).wait(), EXIT_SUCCESS);
}
