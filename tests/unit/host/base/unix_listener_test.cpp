// SPDX-License-Identifier: MIT
#include "base/unix_listener.hpp"

#include <gmock/gmock.h>
#include <grp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <vector>

#include "base/unix_socket.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;

namespace {

std::filesystem::path _observed_path;
std::optional<bool> _existed_before_listen;
std::atomic<long> _failed_accepts{0};

}  // namespace

/// Replaces the C library's function in this program.
extern "C" int listen(int descriptor, int backlog) noexcept {
    _existed_before_listen = std::filesystem::exists(_observed_path);
    return static_cast<int>(syscall(SYS_listen, descriptor, backlog));
}

extern "C" int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags) {
    long const result = syscall(SYS_accept4, descriptor, address, size, flags);
    _failed_accepts += result < 0 ? 1 : 0;
    return static_cast<int>(result);
}

namespace {

class UnixListener : public testing::Test {
protected:
    UnixListener() { _observed_path = path_; }

    std::size_t files() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory_.path()),
                                                      std::filesystem::directory_iterator()));
    }

    temporary_directory directory_;
    std::filesystem::path path_ = directory_.path() / "socket";
};

}  // namespace

TEST_F(UnixListener, ListensBeforeItsPathExists) {
    unix_listener listener("test socket", path_, SOCK_SEQPACKET);
    EXPECT_EQ(_existed_before_listen, false);
    EXPECT_TRUE(connect_to(path_, SOCK_SEQPACKET));
    EXPECT_TRUE(listener.accept());
}

TEST_F(UnixListener, HasOneFileForThisUser) {
    {
        unix_listener const listener("test socket", path_, SOCK_STREAM);
        EXPECT_EQ(files(), 1);
        struct stat found {};
        ASSERT_EQ(lstat(path_.c_str(), &found), 0);
        EXPECT_TRUE(S_ISSOCK(found.st_mode));
        EXPECT_EQ(found.st_mode & 0777, 0600);
    }
    EXPECT_EQ(files(), 0);
}

TEST_F(UnixListener, HasAPathOfAnyLengthThatIsAnAddress) {
    constexpr std::size_t longest = sizeof sockaddr_un::sun_path - 1;
    std::size_t const left = longest - directory_.path().native().size() - 1;
    auto const deep = directory_.path() / std::string(left - 2, 'd');
    std::filesystem::create_directory(deep);
    for (auto const& path : {directory_.path() / std::string(left, 'f'), deep / "s"}) {
        ASSERT_EQ(path.native().size(), longest);
        for (int const type : {SOCK_STREAM, SOCK_SEQPACKET}) {
            unix_listener listener("test socket", path, type, getegid());
            EXPECT_TRUE(connect_to(path, type));
            EXPECT_TRUE(listener.accept());
        }
    }
    EXPECT_EQ(files(), 1U);
    EXPECT_TRUE(std::filesystem::is_empty(deep));
    EXPECT_THROW(unix_listener("test socket", directory_.path() / std::string(left + 1, 'f'), SOCK_STREAM),
                 std::runtime_error);
}

TEST_F(UnixListener, ReplacesASocketThatADeadProcessHasLeft) {
    {
        unix_listener const listener("test socket", path_, SOCK_STREAM);
        std::filesystem::create_hard_link(path_, directory_.path() / "left");
    }
    std::filesystem::rename(directory_.path() / "left", path_);
    unix_listener const listener("test socket", path_, SOCK_STREAM);
    EXPECT_TRUE(connect_to(path_, SOCK_STREAM));
    EXPECT_EQ(files(), 1);
}

TEST_F(UnixListener, RefusesAPathThatIsInUse) {
    unix_listener const listener("test socket", path_, SOCK_STREAM);
    EXPECT_THAT([&] { unix_listener("test socket", path_, SOCK_STREAM); },
                testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr("another mediagrabber listens there")));
    EXPECT_TRUE(connect_to(path_, SOCK_STREAM));
}

TEST_F(UnixListener, KeepsAFileThatIsNotASocket) {
    std::ofstream(path_) << "text";
    EXPECT_THAT([&] { unix_listener("test socket", path_, SOCK_STREAM); },
                testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr("the path exists and is not a socket")));
    EXPECT_EQ(std::filesystem::file_size(path_), 4);
    EXPECT_EQ(files(), 1);
}

TEST_F(UnixListener, LeavesNoFileInADirectoryWhereItCannotBeCreated) {
    EXPECT_THROW(unix_listener("test socket", directory_.path() / "missing" / "socket", SOCK_STREAM),
                 std::runtime_error);
    EXPECT_EQ(files(), 0);
}

TEST_F(UnixListener, RemovesOnlyItsOwnFile) {
    {
        unix_listener const listener("test socket", path_, SOCK_STREAM);
        std::filesystem::remove(path_);
        std::ofstream(path_) << "text";
    }
    EXPECT_EQ(std::filesystem::file_size(path_), 4);
}

TEST_F(UnixListener, ReportsAListenerWithAFullQueueAsInUse) {
    unix_listener const listener("test socket", path_, SOCK_STREAM);
    std::vector<file_handle> waiting;
    while (auto one = connect_to(path_, SOCK_STREAM, std::chrono::milliseconds(0))) {
        waiting.push_back(std::move(one));
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_THAT([&] { unix_listener("test socket", path_, SOCK_STREAM); },
                testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr("another mediagrabber listens there")));
    EXPECT_FALSE(connect_to(path_, SOCK_STREAM, std::chrono::milliseconds(10))) << "waits for a limited time";
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(UnixListener, IsOpenToItsGroup) {
    unix_listener const listener("test socket", path_, SOCK_STREAM, getegid());
    struct stat found {};
    ASSERT_EQ(lstat(path_.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0660);
    EXPECT_EQ(found.st_gid, getegid());
    EXPECT_EQ(files(), 1);
}

TEST_F(UnixListener, AcceptsMembersOfItsGroupAndNoOthers) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can take the identity of other users";
    }
    constexpr uid_t other_user = 12'345;
    constexpr gid_t allowed = 23'456;
    constexpr gid_t another = 34'567;
    std::filesystem::permissions(directory_.path(), std::filesystem::perms::all);
    // The file's mode is not what refuses a client here.
    auto const served = [&](unix_listener& listener, gid_t primary, std::vector<gid_t> const& others) {
        std::filesystem::permissions(path_, std::filesystem::perms::all);
        pid_t const child = fork();
        if (child == 0) {
            bool const changed =
                setgroups(others.size(), others.data()) == 0 && setgid(primary) == 0 && setuid(other_user) == 0;
            file_handle const connection = connect_to(path_, SOCK_STREAM);
            char byte = 0;
            _exit(changed && connection && recv(connection.get(), &byte, 1, 0) == 1 ? 1 : 0);
        }
        pollfd watched{.fd = listener.descriptor(), .events = POLLIN, .revents = 0};
        EXPECT_EQ(poll(&watched, 1, 30'000), 1);
        if (auto const connection = listener.accept()) {
            EXPECT_EQ(send(connection.get(), "x", 1, MSG_NOSIGNAL), 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WEXITSTATUS(status) == 1;
    };
    {
        unix_listener listener("test socket", path_, SOCK_STREAM, allowed);
        EXPECT_TRUE(served(listener, allowed, {}));
        EXPECT_TRUE(served(listener, another, {another, allowed}));
        EXPECT_FALSE(served(listener, another, {another}));
    }
    unix_listener listener("test socket", path_, SOCK_STREAM);
    EXPECT_FALSE(served(listener, allowed, {allowed}));
}

TEST_F(UnixListener, PausesWhileDescriptorsAreExhausted) {
    unix_listener listener("test socket", path_, SOCK_STREAM);
    file_handle const client = connect_to(path_, SOCK_STREAM);
    ASSERT_TRUE(client);
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    int const lowest_free = dup(client.get());
    close(lowest_free);
    rlimit const none{.rlim_cur = static_cast<rlim_t>(lowest_free), .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    long const failed_before = _failed_accepts;
    auto const begun = std::chrono::steady_clock::now();
    for (int i = 0; i < 4; ++i) {
        EXPECT_FALSE(listener.accept());
    }
    auto const taken = std::chrono::steady_clock::now() - begun;
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(_failed_accepts - failed_before, 4);
    EXPECT_GE(taken, std::chrono::milliseconds(150)) << "a busy loop";
    EXPECT_TRUE(listener.accept()) << "the client has waited";
}

TEST(UnixSocket, HasNoDefaultPathThatOtherUsersCanTake) {
    char const* const before = getenv("XDG_RUNTIME_DIR");
    std::string const saved = before == nullptr ? "" : before;
    setenv("XDG_RUNTIME_DIR", "/run/user/7", 1);
    EXPECT_EQ(default_control_socket("3").value().string(), "/run/user/7/mediagrabber.3.sock");
    unsetenv("XDG_RUNTIME_DIR");
    auto const path = default_control_socket("3");
    if (geteuid() == 0) {
        EXPECT_EQ(path.value().string(), "/run/mediagrabber.3.sock");
    } else {
        EXPECT_FALSE(path && path->native().starts_with("/tmp"));
    }
    if (before != nullptr) {
        setenv("XDG_RUNTIME_DIR", saved.c_str(), 1);
    }
}

TEST(UnixSocket, HasNoDefaultPathWithoutARuntimeDirectory) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can take the identity of other users";
    }
    pid_t const child = fork();
    if (child == 0) {
        unsetenv("XDG_RUNTIME_DIR");
        _exit(setuid(54'321) == 0 && !default_control_socket("3") ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(UnixSocket, FindsTheControlSocketOfAService) {
    temporary_directory const runtime;
    EXPECT_THROW(service_control_socket("left", runtime.path()), std::runtime_error);
    auto const directory = runtime.path() / "mediagrabber-left";
    std::filesystem::create_directory(directory);
    std::ofstream(directory / "frames.sock") << "";
    EXPECT_THROW(service_control_socket("left", runtime.path()), std::runtime_error);
    std::ofstream(directory / "mediagrabber.7.sock") << "";
    EXPECT_TRUE(service_control_socket("left", runtime.path()) == directory / "mediagrabber.7.sock");
    std::ofstream(directory / "mediagrabber.8.sock") << "";
    EXPECT_THROW(service_control_socket("left", runtime.path()), std::runtime_error);
}

TEST(UnixSocket, FindsTheControlSocketsOfServices) {
    temporary_directory const runtime;
    for (auto const* const name : {"mediagrabber-right", "mediagrabber-left", "other"}) {
        std::filesystem::create_directory(runtime.path() / name);
        std::ofstream(runtime.path() / name / "mediagrabber.7.sock") << "";
    }
    std::ofstream(runtime.path() / "mediagrabber-left" / "frames.sock") << "";
    auto const found = control_sockets_of_services(runtime.path());
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].service, "left");
    EXPECT_TRUE(found[1].path == runtime.path() / "mediagrabber-right/mediagrabber.7.sock");
    EXPECT_TRUE(control_sockets_of_services(runtime.path() / "nowhere").empty());
}

TEST(UnixSocket, FindsGroupsByNameAndNumber) {
    EXPECT_EQ(group_number("root"), 0U);
    EXPECT_EQ(group_number("4711"), 4'711U);
    EXPECT_EQ(group_number("no such group"), std::nullopt);
}
