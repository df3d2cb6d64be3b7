// SPDX-License-Identifier: MIT
#include "gvcp/gvcp_discovery.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <random>
#include <span>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

#include "net/udp_socket.hpp"

namespace openpv {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds ack_timeout{1000};     ///< longest acknowledge delay that GigE Vision allows
constexpr milliseconds repeat_interval{300};  ///< the broadcast is sent twice, because it may be lost
constexpr ipv4_address limited_broadcast{0xFFFFFFFF};
/// Acknowledges that are read from one socket before the other sockets and the clock are checked.
constexpr int max_batch = 64;
/// So that acknowledges of cameras are not lost while those of others arrive in a flood. The kernel grants less if
/// net.core.rmem_max is lower.
constexpr int receive_buffer_bytes = 2 << 20;

/// One socket per host address, and one more for acknowledges that are broadcast. The socket that receives an
/// acknowledge identifies the camera's interface.
struct search {
    udp_socket socket;
    ipv4_address host;
    std::size_t interface;  ///< index into the list of interfaces
    bool sends;             ///< false for the socket that receives broadcasts
};

std::optional<std::vector<discovered_interface>> list_interfaces(std::string const& only) {
    auto listed = list_network_interfaces();
    if (!listed) {
        return std::nullopt;
    }
    std::vector<discovered_interface> interfaces;
    for (network_interface& each : *listed) {
        if (only.empty() || each.name == only) {
            interfaces.push_back({std::move(each), {}});
        }
    }
    return interfaces;
}

std::vector<search> open_searches(std::vector<discovered_interface> const& interfaces, gvcp::ack_delivery how) {
    std::vector<search> searches;
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        for (ipv4_address const host : interfaces[i].interface.addresses) {
            auto socket = udp_socket::bind({host, 0});
            if (!socket || !socket->allow_broadcast()) {
                continue;
            }
            ::setsockopt(socket->descriptor(), SOL_SOCKET, SO_RCVBUF, &receive_buffer_bytes,
                         sizeof receive_buffer_bytes);
            auto broadcasts = how == gvcp::ack_delivery::broadcast
                                  ? udp_socket::bind_to_broadcasts(socket->local_port(), interfaces[i].interface.name)
                                  : std::nullopt;
            searches.push_back({std::move(*socket), host, i, true});
            if (broadcasts) {
                searches.push_back({std::move(*broadcasts), host, i, false});
            }
        }
    }
    return searches;
}

void broadcast(std::vector<search>& searches, gvcp::message const& message) {
    for (search& each : searches) {
        if (each.sends) {
            each.socket.send_to({limited_broadcast, gvcp::port}, message);
        }
    }
}

/// Calls `add(search, acknowledge, sender)`.
template <class function>
void read_acknowledges(search& each, function const& add) {
    std::array<std::byte, gvcp::max_message_bytes> memory{};
    for (int i = 0; i < max_batch; ++i) {
        auto const received = each.socket.receive(memory);
        if (!received) {
            return;
        }
        if (received->bytes <= memory.size()) {
            add(each, std::span<std::byte const>(memory).first(received->bytes), received->sender.address);
        }
    }
}

template <class function>
void collect_until(clock::time_point deadline, std::vector<search>& searches, function const& add) {
    std::vector<pollfd> waiting;
    waiting.reserve(searches.size());
    for (search const& each : searches) {
        waiting.push_back({each.socket.descriptor(), POLLIN, 0});
    }
    for (auto now = clock::now(); now < deadline; now = clock::now()) {
        auto const remaining = std::chrono::ceil<milliseconds>(deadline - now).count();
        if (::poll(waiting.data(), waiting.size(), static_cast<int>(remaining)) <= 0) {
            continue;
        }
        for (std::size_t i = 0; i < searches.size(); ++i) {
            if (waiting[i].revents != 0) {
                read_acknowledges(searches[i], add);
            }
        }
    }
}

}  // namespace

void add_acknowledge(discovered_interface& interface, std::span<std::byte const> received, ipv4_address sender,
                     ipv4_address host, std::uint16_t request) {
    if (interface.cameras.size() >= max_cameras) {
        return;
    }
    if (std::ranges::count(interface.cameras, sender, &discovered_camera::camera) >= max_cameras_of_sender) {
        return;
    }
    auto identity = gvcp::parse_discovery_ack(received, request);
    bool const known = identity && std::ranges::any_of(interface.cameras, [&](discovered_camera const& other) {
                           return other.identity.mac == identity->mac && other.camera == sender;
                       });
    if (identity && !known) {
        interface.cameras.push_back({std::move(*identity), sender, host});
    }
}

std::optional<std::vector<discovered_interface>> discover_cameras(gvcp::ack_delivery how,
                                                                  std::string const& interface) {
    auto interfaces = list_interfaces(interface);
    if (!interfaces) {
        return std::nullopt;
    }
    auto searches = open_searches(*interfaces, how);
    auto const request = static_cast<std::uint16_t>(std::random_device{}() % 0xFFFF + 1);
    auto const message = gvcp::make_discovery(request, how);
    auto const add = [&](search const& from, std::span<std::byte const> received, ipv4_address sender) {
        add_acknowledge((*interfaces)[from.interface], received, sender, from.host, request);
    };
    auto const start = clock::now();
    broadcast(searches, message);
    collect_until(start + repeat_interval, searches, add);
    broadcast(searches, message);
    collect_until(start + ack_timeout, searches, add);
    return interfaces;
}

std::optional<std::vector<broadcast_ack>> broadcast_command(gvcp::message const& command, milliseconds time,
                                                            std::string const& interface) {
    auto const interfaces = list_interfaces(interface);
    auto const sent = gvcp::parse_acknowledge(command);  // commands and acknowledges have code and ID at one place
    if (!interfaces || !sent) {
        return std::nullopt;
    }
    auto searches = open_searches(*interfaces, gvcp::ack_delivery::broadcast);
    std::vector<broadcast_ack> acks;
    auto const add = [&](search const&, std::span<std::byte const> received, ipv4_address sender) {
        auto const ack = gvcp::parse_acknowledge(received);
        if (!ack || ack->code != sent->code + 1 || ack->request != sent->request) {
            return;
        }
        broadcast_ack const one{sender, ack->status};
        if (acks.size() < max_cameras * interfaces->size() && std::ranges::find(acks, one) == acks.end()) {
            acks.push_back(one);
        }
    };
    broadcast(searches, command);
    collect_until(clock::now() + time, searches, add);
    return acks;
}

}  // namespace openpv
