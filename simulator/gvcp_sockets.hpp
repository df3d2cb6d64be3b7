#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "file_descriptor.hpp"
#include "gvcp_device.hpp"
#include "ipv4.hpp"

namespace camsim {

/// The control channel's sockets: port 3956 of the camera's own address, and of the broadcast addresses of its
/// interface. They belong to the camera, whether it has power or not: without, it answers nothing, but its address
/// does not refuse anything either.
class gvcp_sockets {
public:
    struct arrival {
        std::span<std::byte const> datagram;
        endpoint sender;
        delivery how;
    };

    explicit gvcp_sockets(network_interface const& interface);

    std::vector<int> descriptors() const;
    std::optional<arrival> receive(int descriptor);
    void send(endpoint const& destination, std::span<std::byte const> datagram);
    void discard();

private:
    /// Longer than any GVCP datagram; what does not fit is cut and then fails the length check.
    static constexpr std::size_t receive_size = 2048;

    unsigned interface_index_;
    file_descriptor unicast_;
    std::vector<file_descriptor> broadcast_;
    std::array<std::byte, receive_size> buffer_{};
};

}  // namespace camsim
