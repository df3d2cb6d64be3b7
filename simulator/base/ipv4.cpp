// SPDX-License-Identifier: MIT
#include "base/ipv4.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <array>
#include <cerrno>
#include <memory>
#include <system_error>

namespace camsim {

namespace {

template <typename predicate>
std::optional<network_interface> find_interface(predicate matches) {
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot list this host's network interfaces");
    }
    std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> const list(first, &freeifaddrs);
    for (ifaddrs const* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET || entry->ifa_netmask == nullptr) {
            continue;
        }
        ipv4_address const address = from_sockaddr(*reinterpret_cast<sockaddr_in const*>(entry->ifa_addr)).address;
        ipv4_address const mask = from_sockaddr(*reinterpret_cast<sockaddr_in const*>(entry->ifa_netmask)).address;
        network_interface const found{entry->ifa_name, if_nametoindex(entry->ifa_name), address, mask};
        if (matches(found)) {
            return found;
        }
    }
    return std::nullopt;
}

}  // namespace

std::string to_string(ipv4_address address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    in_addr const binary{htonl(address)};
    return inet_ntop(AF_INET, &binary, text.data(), text.size());
}

std::optional<ipv4_address> parse_ipv4(std::string const& text) {
    in_addr binary{};
    if (inet_pton(AF_INET, text.c_str(), &binary) != 1) {
        return std::nullopt;
    }
    return ntohl(binary.s_addr);
}

sockaddr_in to_sockaddr(endpoint const& point) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(point.port);
    address.sin_addr.s_addr = htonl(point.address);
    return address;
}

endpoint from_sockaddr(sockaddr_in const& address) {
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

std::optional<network_interface> interface_with_address(ipv4_address address) {
    auto exact = find_interface([=](network_interface const& one) { return one.address == address; });
    if (exact) {
        return exact;
    }
    constexpr ipv4_address loopback_network = 0x7F00'0000;
    auto loopback = find_interface([=](network_interface const& one) {
        return (one.address & one.subnet_mask) == loopback_network && (address & one.subnet_mask) == loopback_network;
    });
    if (loopback) {
        loopback->address = address;
    }
    return loopback;
}

std::optional<network_interface> interface_named(std::string const& name) {
    return find_interface([&](network_interface const& one) { return one.name == name; });
}

}  // namespace camsim
