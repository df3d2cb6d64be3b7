// SPDX-License-Identifier: MIT
#include "control/control_client.hpp"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <sstream>

#include "control/control_server.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;

TEST(ControlClient, OfRootReachesTheRecordingOfAnotherUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can take the identity of other users";
    }
    temporary_directory const directory;
    std::filesystem::permissions(directory.path(), std::filesystem::perms::all);
    auto const path = directory.path() / "control";
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t const service = fork();
    if (service == 0) {
        if (setgid(23'456) != 0 || setuid(12'345) != 0) {
            _exit(1);
        }
        control_server server(path, std::nullopt);
        server.open([](change_request const& request) {
            return change_answer{.status = exit_status::success, .lines = {"request " + request.signal}};
        });
        [[maybe_unused]] auto const told = write(ready[1], "x", 1);
        pause();
        _exit(0);
    }
    close(ready[1]);
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1) << "the service has not started";
    std::ostringstream out;
    std::ostringstream errors;
    change_request request;
    request.signal = "reload";
    EXPECT_EQ(send_request(path, request, false, out, errors), exit_status::success);
    EXPECT_EQ(out.str(), "request reload\n") << errors.str();
    kill(service, SIGKILL);
    waitpid(service, nullptr, 0);
    close(ready[0]);
}

TEST(ControlClient, ReportsThatNoRecordingListens) {
    std::ostringstream errors;
    EXPECT_EQ(send_request("/nowhere/control", {}, false, errors, errors), exit_status::no_recording);
    EXPECT_THAT(errors.str(), testing::HasSubstr("no mediagrabber listens at /nowhere/control (No such file"));
}
