// SPDX-License-Identifier: MIT
#include "main/camera.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <optional>
#include <string>

#include "base/byte_order.hpp"
#include "base/file_descriptor.hpp"
#include "device/bootstrap_registers.hpp"
#include "protocol/gvcp_packet.hpp"
#include "temporary_directory.hpp"

using namespace camsim;

namespace {

/// An address in the loopback network that no other process uses: tests run as processes side by side.
ipv4_address const camera_address = 0x7F4D'0000U | (static_cast<std::uint32_t>(::getpid()) & 0xFFFFU);

constexpr timeval present{.tv_sec = 60, .tv_usec = 0};      // limit for a response that must arrive
constexpr timeval absent{.tv_sec = 0, .tv_usec = 200'000};  // limit for a response that must not arrive

void set_timeout(file_descriptor const& socket, timeval const& limit) {
    ASSERT_EQ(::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
}

/// A running camera and an application with a GVCP socket and a connection to the control socket.
struct RunningCamera : testing::Test {
    RunningCamera() : camera(options()) {
        camera.start();
        sockaddr_in const address = to_sockaddr({camera_address, gvcp::port});
        EXPECT_EQ(::connect(gvcp_socket.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
        sockaddr_un path{};
        path.sun_family = AF_UNIX;
        std::strncpy(path.sun_path, options().control_socket.c_str(), sizeof(path.sun_path) - 1);
        EXPECT_EQ(::connect(control_socket.get(), reinterpret_cast<sockaddr const*>(&path), sizeof path), 0);
        set_timeout(control_socket, present);
    }

    camera_options options() const {
        camera_options chosen;
        chosen.address = camera_address;
        chosen.scene.sensor_width = 320;
        chosen.scene.sensor_height = 100;
        chosen.control_socket = (directory.path() / "control").string();
        return chosen;
    }

    /// \return the datagram of the ACK; empty if none arrives within `limit`
    std::optional<std::vector<std::byte>> execute(gvcp::command command, std::vector<std::byte> const& payload,
                                                  timeval const& limit) {
        set_timeout(gvcp_socket, limit);
        auto const number = static_cast<std::uint16_t>(command);
        auto const datagram = gvcp::encode_command({1, number, 0, ++request_id}, payload);
        EXPECT_EQ(::send(gvcp_socket.get(), datagram.data(), datagram.size(), 0),
                  static_cast<ssize_t>(datagram.size()));
        std::vector<std::byte> ack(gvcp::max_datagram_size);
        ssize_t const length = ::recv(gvcp_socket.get(), ack.data(), ack.size(), 0);
        if (length < 0) {
            return std::nullopt;
        }
        ack.resize(static_cast<std::size_t>(length));
        EXPECT_EQ(gvcp::decode_acknowledge_header(ack)->acknowledge_id, request_id);
        return ack;
    }
    std::optional<std::uint32_t> privilege(timeval const& limit) {
        auto const ack = execute(gvcp::command::readreg,
                                 gvcp::encode_readreg_payload(std::array{bootstrap::control_channel_privilege}), limit);
        return ack ? std::optional(load_be32(*ack, gvcp::header_size)) : std::nullopt;
    }
    void take_control() {
        std::array const write{gvcp::register_write{bootstrap::control_channel_privilege, 2}};
        ASSERT_TRUE(execute(gvcp::command::writereg, gvcp::encode_writereg_payload(write), present));
    }
    std::string request(std::string const& line) {
        EXPECT_EQ(::send(control_socket.get(), (line + '\n').data(), line.size() + 1, 0),
                  static_cast<ssize_t>(line.size() + 1));
        std::array<char, 1024> response{};
        ssize_t const length = ::recv(control_socket.get(), response.data(), response.size(), 0);
        return {response.data(), static_cast<std::size_t>(length < 0 ? 0 : length)};
    }

    temporary_directory directory;
    camsim::camera camera;
    file_descriptor gvcp_socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    file_descriptor control_socket{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::uint16_t request_id = 0;
};

}  // namespace

TEST_F(RunningCamera, DoesNotRespondDuringAPowerCycleAndLosesItsSettings) {
    take_control();
    EXPECT_EQ(privilege(present), 2U);
    EXPECT_EQ(request(R"(start = { kind = "power_cycle" })"), "fault = 1\n");
    EXPECT_EQ(privilege(absent), std::nullopt);
    EXPECT_EQ(request("stop = 1"), "hits = 0\n");
    EXPECT_EQ(privilege(present), 0U);
}

TEST_F(RunningCamera, DoesNotRespondWhileItIsFrozenAndKeepsItsSettings) {
    take_control();
    EXPECT_EQ(request(R"(start = { kind = "freeze", control = true })"), "fault = 1\n");
    EXPECT_EQ(privilege(absent), std::nullopt);
    EXPECT_EQ(request("stop = 1"), "hits = 0\n");
    EXPECT_EQ(privilege(present), 2U);
}
