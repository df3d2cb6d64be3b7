// SPDX-License-Identifier: MIT
#include "base/accept_pause.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "base/host_log.hpp"

using namespace mediagrabber;

TEST(AcceptPause, ReportsASeriesOnce) {
    std::vector<std::string> warnings;  // written by the thread of the log, read after its end
    {
        log_opened const log;
        forward_log([&](char, std::string_view text) { warnings.emplace_back(text); });
        accept_pause pause("test socket");
        auto const begun = std::chrono::steady_clock::now();
        for (int i = 0; i < 3; ++i) {
            pause.after(EMFILE);
        }
        EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(100)) << "a busy loop";
        pause.succeeded();
        pause.after(ENFILE);
        pause.after(ECONNABORTED);
    }
    forward_log(nullptr);
    ASSERT_EQ(warnings.size(), 2U);
    EXPECT_THAT(warnings[0], testing::HasSubstr("test socket: clients must wait: Too many open files"));
}
