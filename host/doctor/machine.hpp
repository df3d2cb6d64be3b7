// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// The settings of this machine that matter for receiving and storing frames.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace mediagrabber {

/// A network interface. What could not be determined is absent.
struct network_interface {
    std::string name;
    std::uint32_t mtu = 0;        ///< bytes
    std::uint32_t rp_filter = 0;  ///< effective reverse-path filter: 0 off, 1 strict, 2 loose
    bool has_hardware = false;    ///< backed by a network card, so it has interrupts and queues
    std::optional<bool> gro;      ///< generic receive offload
    std::optional<bool> udp_gro;  ///< offload of UDP datagrams for sockets that did not request it
    std::optional<bool> defers;   ///< packets are collected before processing, so that there are some to merge
    std::optional<std::uint32_t> rx_usecs;     ///< interrupt moderation, microseconds; nothing: adaptive
    std::optional<std::uint32_t> rx_ring;      ///< NIC RX ring, packets
    std::optional<std::uint32_t> max_rx_ring;  ///< the largest that the card supports
};

enum class firewall_state : std::uint8_t { unknown, open, filters };

struct machine {
    std::vector<network_interface> interfaces;   ///< those that are up and have an IPv4 address
    std::uint64_t max_receive_buffer = 0;        ///< net.core.rmem_max, bytes
    bool may_exceed_max_receive_buffer = false;  ///< this process has CAP_NET_ADMIN
    std::uint64_t datagrams_dropped = 0;         ///< since boot, socket receive buffer full (UdpRcvbufErrors)
    std::vector<std::string> governors;          ///< cpufreq governors in use, without duplicates
    std::optional<bool> clock_is_synchronised;
    firewall_state firewall = firewall_state::unknown;
};

/// \param root  prefix of /proc and /sys; tests use their own
/// \param only  the interface to examine; empty: all
/// \throws std::runtime_error if the host does not have the interface `only`
machine examine_machine(std::filesystem::path const& root, std::string const& only);

}  // namespace mediagrabber
