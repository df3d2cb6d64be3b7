#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "file_descriptor.hpp"
#include "ipv4.hpp"
#include "stream_block.hpp"

namespace camsim {

/// The UDP socket of a stream channel. Safe to send from by several threads.
class stream_socket {
public:
    explicit stream_socket(ipv4_address own_address);

    std::uint16_t port() const { return port_; }
    void set_do_not_fragment(bool on);
    std::size_t send(endpoint const& destination, packet_run const& run);

private:
    bool send_segmented(sockaddr_in& destination, packet_run const& run);
    std::size_t send_one_by_one(sockaddr_in& destination, packet_run const& run);

    file_descriptor socket_;
    std::uint16_t port_ = 0;
    std::atomic<bool> do_not_fragment_ = false;  ///< what the socket was told last
    std::atomic<bool> segmentation_works_ = true;
};

}  // namespace camsim
