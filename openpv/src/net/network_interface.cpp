// SPDX-License-Identifier: MIT
#include "net/network_interface.hpp"

#include <algorithm>
#include <memory>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace openpv {
namespace {

/// Strips the label of an additional address: `eth0:1` is an address of `eth0`.
std::string interface_of_label(std::string const& label) {
    return label.substr(0, label.find(':'));
}

ipv4_address address_of(sockaddr const& address) {
    return {ntohl(reinterpret_cast<sockaddr_in const&>(address).sin_addr.s_addr)};
}

void add_address(std::vector<network_interface>& interfaces, std::string const& name, ipv4_address address,
                 ipv4_address mask) {
    unsigned const index = if_nametoindex(name.c_str());
    if (index == 0) {
        return;  // removed since it was listed
    }
    auto position = std::ranges::lower_bound(interfaces, index, {}, &network_interface::index);
    if (position == interfaces.end() || position->index != index) {
        position = interfaces.insert(position, {index, name, {}, {}});
    }
    position->addresses.push_back(address);
    position->masks.push_back(mask);
}

}  // namespace

std::optional<std::vector<network_interface>> list_network_interfaces() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return std::nullopt;
    }
    std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> const owner(list, &freeifaddrs);
    std::vector<network_interface> interfaces;
    for (ifaddrs const* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET && (entry->ifa_flags & IFF_UP) != 0) {
            auto const mask =
                entry->ifa_netmask != nullptr ? address_of(*entry->ifa_netmask) : ipv4_address{0xFFFFFFFF};
            add_address(interfaces, interface_of_label(entry->ifa_name), address_of(*entry->ifa_addr), mask);
        }
    }
    return interfaces;
}

}  // namespace openpv
