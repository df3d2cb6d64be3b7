// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// `gevctl force-ip` and `set-ip`.

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "gvcp/gvcp_message.hpp"
#include "report/failure.hpp"

namespace gevctl {

/// \param address for example `10.0.0.5/24`
/// \param gateway empty: none
/// \throws failure unless the address is that of a host in its subnet, and the gateway is in the subnet
openpv::gvcp::ip_settings parse_ip_settings(std::string const& address, std::string const& gateway);

/// \return null unless `text` is six bytes as in `00:11:1c:00:00:07`
std::optional<std::uint64_t> parse_mac(std::string const& text);

struct force_ip_options {
    std::string mac;
    std::string address;
    std::string gateway;
    std::string interface;
};
/// Changes the present address of a camera, also of one in another subnet, and finds the camera again.
exit_status force_ip_command(force_ip_options const& options, std::ostream& out);

struct set_ip_options {
    std::vector<std::string> words;  ///< `[CAMERA] dhcp|link-local|persistent [ADDRESS/PREFIX]`
    std::string gateway;
};
/// Sets how the camera gets its address at power-up.
exit_status set_ip_command(set_ip_options options, std::ostream& out, std::ostream& errors);

}  // namespace gevctl
