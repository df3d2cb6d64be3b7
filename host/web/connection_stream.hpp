#pragma once

#include <httplib.h>

#include <chrono>
#include <cstddef>
#include <string>

#include "file_handle.hpp"

namespace mediagrabber {

/// One connection of somebody on the network: nobody gets longer than so for a request, longer than so to take the
/// answer, or sends more than so much.
class connection_stream final : public httplib::Stream {
public:
    using clock = std::chrono::steady_clock;

    struct limits_of_one {
        std::chrono::milliseconds to_send{5'000};   ///< the whole request
        std::chrono::milliseconds to_take{10'000};  ///< the whole answer
        std::size_t bytes = 64 * 1024;              ///< of the request
    };

    connection_stream(file_handle const& connection, std::string remote, limits_of_one const& limits);

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* to, std::size_t size) override;
    ssize_t write(char const* from, std::size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return connection_.get(); }

    /// Ends the answer; takes what the other one still sends, so that he gets to read it, but not for long.
    void finish();

private:
    bool ready(short events, clock::time_point until) const;

    file_handle const& connection_;
    std::string const remote_;
    limits_of_one const limits_;
    clock::time_point const read_until_;
    clock::time_point write_until_;  ///< from the first byte of the answer
    std::size_t bytes_left_;
};

}  // namespace mediagrabber
