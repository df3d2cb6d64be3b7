// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>

namespace mediagrabber {

/// A client that sends arbitrary bytes.
class raw_client {
public:
    /// \param receive_buffer  bytes; 0: the system's default
    explicit raw_client(std::uint16_t port, int receive_buffer = 0) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
        if (receive_buffer != 0) {
            setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
        }
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(socket_, reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    }
    ~raw_client() { close(socket_); }
    raw_client(raw_client const&) = delete;
    raw_client& operator=(raw_client const&) = delete;

    void send_text(std::string const& text) const { send(socket_, text.data(), text.size(), MSG_NOSIGNAL); }
    void end() const { shutdown(socket_, SHUT_WR); }
    /// Blocks until something has arrived.
    void receive_some() const {
        char first = 0;
        EXPECT_EQ(recv(socket_, &first, 1, 0), 1);
    }
    /// \return everything up to the end of the connection
    std::string receive_all() const {
        std::string received;
        std::array<char, 4096> some{};
        for (ssize_t got = 1; (got = recv(socket_, some.data(), some.size(), 0)) > 0;) {
            received.append(some.data(), static_cast<std::size_t>(got));
        }
        return received;
    }

private:
    int const socket_;
};

}  // namespace mediagrabber
