// SPDX-License-Identifier: MIT
#include "base/journald_sink.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>

#include "base/file_handle.hpp"

using namespace mediagrabber;

namespace {

class Journal : public testing::Test {
protected:
    ~Journal() override { unsetenv("JOURNAL_STREAM"); }

    static void name_stream(int descriptor) {
        struct stat found {};
        ASSERT_EQ(fstat(descriptor, &found), 0);
        setenv("JOURNAL_STREAM", (std::to_string(found.st_dev) + ":" + std::to_string(found.st_ino)).c_str(), 1);
    }

    mediagrabber::file_handle const one{open("/dev/null", O_WRONLY)};
    mediagrabber::file_handle const other{open("/dev/zero", O_WRONLY)};
};

}  // namespace

TEST_F(Journal, IsWhatTheEnvironmentNames) {
    name_stream(one.get());
    EXPECT_TRUE(goes_to_journal(one.get()));
    EXPECT_FALSE(goes_to_journal(other.get()));
}

TEST_F(Journal, IsNotThereWithoutSystemd) {
    EXPECT_FALSE(goes_to_journal(one.get()));
    EXPECT_FALSE(goes_to_journal(-1));
}
