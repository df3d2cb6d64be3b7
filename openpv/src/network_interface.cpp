#include "network_interface.hpp"

#include <algorithm>
#include <memory>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace openpv {
namespace {

/// The interface behind an address label: an additional address may be labelled `eth0:1`.
std::string interface_of_label(std::string const& label) {
    return label.substr(0, label.find(':'));
}

ipv4_address address_of(sockaddr const& address) {
    return {ntohl(reinterpret_cast<sockaddr_in const&>(address).sin_addr.s_addr)};
}

void add_address(std::vector<network_interface>& interfaces, std::string const& name, ipv4_address address) {
    unsigned const index = if_nametoindex(name.c_str());
    if (index == 0) {
        return;  // gone since it was listed
    }
    auto place = std::ranges::lower_bound(interfaces, index, {}, &network_interface::index);
    if (place == interfaces.end() || place->index != index) {
        place = interfaces.insert(place, {index, name, {}});
    }
    place->addresses.push_back(address);
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
            add_address(interfaces, interface_of_label(entry->ifa_name), address_of(*entry->ifa_addr));
        }
    }
    return interfaces;
}

}  // namespace openpv
