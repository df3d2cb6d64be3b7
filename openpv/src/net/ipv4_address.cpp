// SPDX-License-Identifier: MIT
#include "net/ipv4_address.hpp"

#include <array>

#include <arpa/inet.h>

namespace openpv {

std::optional<ipv4_address> parse_ipv4(std::string const& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ipv4_address{ntohl(address.s_addr)};
}

std::string to_text(ipv4_address address) {
    in_addr const network{htonl(address.value)};
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &network, text.data(), text.size());
    return text.data();
}

}  // namespace openpv
