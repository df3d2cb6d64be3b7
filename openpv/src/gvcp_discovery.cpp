#include "gvcp_discovery.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <random>
#include <span>
#include <utility>

#include <poll.h>

#include "udp_socket.hpp"

namespace openpv {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds answer_time{1000};
constexpr milliseconds repeat_after{300};  ///< a broadcast may be lost; it is sent twice
constexpr ipv4_address limited_broadcast{0xFFFFFFFF};

/// One socket for each address of the host, so that an answer tells on which interface its camera is.
struct search {
    udp_socket socket;
    ipv4_address host;
    std::size_t interface;  ///< index into the list of interfaces
};

std::vector<search> open_searches(std::vector<discovered_interface> const& interfaces) {
    std::vector<search> searches;
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        for (ipv4_address const host : interfaces[i].interface.addresses) {
            auto socket = udp_socket::bind({host, 0});
            if (socket && socket->allow_broadcast()) {
                searches.push_back({std::move(*socket), host, i});
            }
        }
    }
    return searches;
}

void ask(std::vector<search>& searches, uint16_t request) {
    auto const message = gvcp::make_discovery(request);
    for (search& each : searches) {
        each.socket.send_to({limited_broadcast, gvcp::port}, message);
    }
}

void add_camera(discovered_interface& interface, discovered_camera camera) {
    bool const known = std::ranges::any_of(interface.cameras, [&camera](discovered_camera const& other) {
        return other.identity.mac == camera.identity.mac && other.camera == camera.camera;
    });
    if (!known) {
        interface.cameras.push_back(std::move(camera));
    }
}

void read_answers(search& each, uint16_t request, std::vector<discovered_interface>& interfaces) {
    std::array<std::byte, gvcp::largest_message> memory{};
    while (auto const received = each.socket.receive(memory)) {
        if (received->bytes > memory.size()) {
            continue;
        }
        if (auto identity = gvcp::read_discovery_answer(std::span(memory).first(received->bytes), request)) {
            add_camera(interfaces[each.interface], {std::move(*identity), received->sender.address, each.host});
        }
    }
}

void gather_until(clock::time_point deadline, std::vector<search>& searches, uint16_t request,
                  std::vector<discovered_interface>& interfaces) {
    std::vector<pollfd> waiting;
    waiting.reserve(searches.size());
    for (search const& each : searches) {
        waiting.push_back({each.socket.descriptor(), POLLIN, 0});
    }
    for (auto now = clock::now(); now < deadline; now = clock::now()) {
        auto const rest = std::chrono::ceil<milliseconds>(deadline - now).count();
        if (::poll(waiting.data(), waiting.size(), static_cast<int>(rest)) <= 0) {
            continue;
        }
        for (std::size_t i = 0; i < searches.size(); ++i) {
            if (waiting[i].revents != 0) {
                read_answers(searches[i], request, interfaces);
            }
        }
    }
}

}  // namespace

std::optional<std::vector<discovered_interface>> discover_cameras() {
    auto listed = list_network_interfaces();
    if (!listed) {
        return std::nullopt;
    }
    std::vector<discovered_interface> interfaces;
    for (network_interface& each : *listed) {
        interfaces.push_back({std::move(each), {}});
    }
    auto searches = open_searches(interfaces);
    auto const request = static_cast<uint16_t>(std::random_device{}() % 0xFFFF + 1);
    auto const start = clock::now();
    ask(searches, request);
    gather_until(start + repeat_after, searches, request, interfaces);
    ask(searches, request);
    gather_until(start + answer_time, searches, request, interfaces);
    return interfaces;
}

}  // namespace openpv
