#pragma once
/// \file
/// What this machine is like, as far as it matters to frames that come over its network and go to its disk.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace mediagrabber {

/// What could not be found out is absent.
struct network_interface {
    std::string name;
    std::uint32_t mtu = 0;        ///< bytes
    std::uint32_t rp_filter = 0;  ///< reverse-path filter in force: 0 none, 1 strict, 2 loose
    bool has_hardware = false;    ///< a card is behind it, which has interrupts and queues
    std::optional<bool> gro;      ///< whether packets are merged
    std::optional<bool> udp_gro;  ///< those of datagrams that nobody asked for merged, too (rx-udp-gro-forwarding)
    std::optional<bool> gathers;  ///< whether packets are let gather so that there is something to merge
    std::optional<std::uint32_t> rx_usecs;   ///< that an interrupt waits for more packets, microseconds
    std::optional<std::uint32_t> ring;       ///< packets that the card has room for
    std::optional<std::uint32_t> ring_most;  ///< and could have
};

enum class firewall_state : std::uint8_t { unknown, open, filters };

struct machine {
    std::vector<network_interface> interfaces;  ///< those that are up and have an IPv4 address
    std::uint64_t socket_room_most = 0;         ///< bytes, net.core.rmem_max
    bool may_exceed_socket_room = false;        ///< this process has the capability for it
    std::uint64_t datagrams_dropped = 0;        ///< since the machine was started, for want of room in sockets
    std::vector<std::string> governors;         ///< of the processors' clocks, each once
    std::optional<bool> clock_is_synchronised;
    firewall_state firewall = firewall_state::unknown;
};

/// \param root where the files of /proc and /sys are found; tests have their own
/// \param only the interface to look at; empty: all
/// \throws std::runtime_error when there is no such interface
machine examine_machine(std::filesystem::path const& root, std::string const& only);

}  // namespace mediagrabber
