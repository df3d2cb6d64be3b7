// SPDX-License-Identifier: MIT
#include "control/control_socket.hpp"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>

#include "base/file_descriptor.hpp"
#include "temporary_directory.hpp"

using namespace camsim;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

std::filesystem::path _observed_path;
std::optional<bool> _existed_before_listen;

}  // namespace

/// Replaces the C library's function in this program.
extern "C" int listen(int descriptor, int backlog) noexcept {
    _existed_before_listen = std::filesystem::exists(_observed_path);
    return static_cast<int>(syscall(SYS_listen, descriptor, backlog));
}

TEST(ControlRequests, StartStopAndListFaultsAndSetTheInputLine) {
    active_faults active{1};
    fault_timeline timeline{active, [] {}};
    std::vector<bool> levels;
    auto const answer = [&](std::string const& line) {
        return handle_control_request(line, timeline, active, {"Width"}, [&](bool high) { levels.push_back(high); });
    };
    EXPECT_EQ(answer("list = true"), "faults = []\n");
    EXPECT_EQ(answer(R"(start = { kind = "packet_loss", probability = 0.5 })"), "fault = 1\n");
    EXPECT_EQ(answer(R"(start = { kind = "freeze" })"), "fault = 2\n");
    std::string const list = answer("list = true");
    EXPECT_THAT(list, StartsWith("faults = [ "));
    EXPECT_THAT(list, HasSubstr("kind = 'packet_loss'"));
    EXPECT_THAT(list, HasSubstr("kind = 'freeze'"));
    EXPECT_EQ(std::ranges::count(list, '\n'), 1);
    EXPECT_EQ(answer("stop = 2"), "hits = 0\n");
    EXPECT_EQ(answer("stop = 2"), "error = 'fault 2 does not exist or has ended'\n");
    EXPECT_EQ(answer("stop = \"all\""), "hits = 0\n");
    std::string const refusal = answer(R"(start = { kind = "packet_loss", probability = 7, for_s = -1 })");
    EXPECT_THAT(refusal, StartsWith("error = "));
    EXPECT_THAT(refusal, HasSubstr("packet_loss.probability: 7 is not valid, expected a number from 0 to 1"));
    EXPECT_THAT(refusal, HasSubstr("for_s"));
    EXPECT_EQ(std::ranges::count(refusal, '\n'), 1);
    EXPECT_EQ(active.list().size(), 0U);
    EXPECT_THAT(levels, IsEmpty());
    EXPECT_EQ(answer("line1 = true"), "line1 = true\n");
    EXPECT_EQ(answer("line1 = false"), "line1 = false\n");
    EXPECT_THAT(answer("line1 = 1"), StartsWith("error = "));
    EXPECT_THAT(levels, ElementsAre(true, false));
}

namespace {

struct ControlSocket : testing::Test {
    ControlSocket() { _observed_path = path; }

    temporary_directory directory;
    std::filesystem::path path = directory.path() / "control";
    control_socket::handler echo = [](std::string const& line) { return "<" + line + ">\n"; };

    file_descriptor connect() const {
        file_descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        timeval const patience{.tv_sec = 60, .tv_usec = 0};
        ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        bool const there = ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        return there ? std::move(socket) : file_descriptor();
    }
    /// Receives a number of lines, or until the other end closes.
    static std::string receive(file_descriptor const& socket, int lines) {
        std::string received;
        char letter = 0;
        while (lines > 0 && ::recv(socket.get(), &letter, 1, 0) == 1) {
            received += letter;
            lines -= letter == '\n' ? 1 : 0;
        }
        return received;
    }
    std::size_t files() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory.path()),
                                                      std::filesystem::directory_iterator()));
    }
    static void send(file_descriptor const& socket, std::string const& text) {
        ::send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL);
    }
};

}  // namespace

TEST_F(ControlSocket, ListensBeforeItsPathExists) {
    control_socket const control(path, echo);
    EXPECT_EQ(_existed_before_listen, false);
    EXPECT_TRUE(connect());
}

TEST_F(ControlSocket, IsAccessibleByItsOwnerOnlyAndRemovedAtTheEnd) {
    {
        control_socket const control(path, echo);
        EXPECT_EQ(files(), 1U);
        struct stat found {};
        ASSERT_EQ(::lstat(path.c_str(), &found), 0);
        EXPECT_EQ(found.st_mode & 0777U, 0600U);
    }
    EXPECT_EQ(files(), 0U);
}

TEST_F(ControlSocket, AnswersEachLineOfEachClient) {
    control_socket const control(path, echo);
    auto const one = connect();
    auto const two = connect();
    ASSERT_TRUE(one && two);
    send(one, "first\nsec");
    EXPECT_EQ(receive(one, 1), "<first>\n");
    send(two, "other\n");
    EXPECT_EQ(receive(two, 1), "<other>\n");
    send(one, "ond\nthird\n");
    EXPECT_EQ(receive(one, 2), "<second>\n<third>\n");
}

TEST_F(ControlSocket, DisconnectsAClientWithATooLongLine) {
    control_socket const control(path, echo);
    auto const socket = connect();
    send(socket, std::string(2 * control_socket::max_request_bytes, 'x'));
    EXPECT_EQ(receive(socket, 1), "");
    auto const next = connect();
    send(next, "hello\n");
    EXPECT_EQ(receive(next, 1), "<hello>\n");
}

TEST_F(ControlSocket, ReplacesASocketThatNoProcessListensOn) {
    {
        file_descriptor const dead(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        ASSERT_EQ(::bind(dead.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ASSERT_TRUE(std::filesystem::exists(path));
    control_socket const control(path, echo);
    EXPECT_THROW(control_socket(path, echo), std::runtime_error);
    auto const socket = connect();
    send(socket, "still here\n");
    EXPECT_EQ(receive(socket, 1), "<still here>\n");
    EXPECT_EQ(files(), 1U);
}

TEST_F(ControlSocket, KeepsAFileThatIsNotASocket) {
    std::ofstream(path) << "precious";
    EXPECT_THROW(control_socket(path, echo), std::runtime_error);
    EXPECT_EQ(std::filesystem::file_size(path), 8U);
    EXPECT_EQ(files(), 1U);
}

TEST_F(ControlSocket, ReportsWhyItCannotBeCreated) {
    auto const error_of = [&](std::filesystem::path const& where) {
        try {
            control_socket const control(where, echo);
        } catch (std::runtime_error const& error) {
            return std::string(error.what());
        }
        return std::string("nothing");
    };
    EXPECT_THAT(error_of(directory.path() / "nowhere" / "control"), HasSubstr("No such file or directory"));
    EXPECT_THAT(error_of(directory.path()), HasSubstr("File exists"));
    EXPECT_THAT(error_of(std::string(200, 'x')), HasSubstr("its path must have 1 to 107 bytes"));
}
