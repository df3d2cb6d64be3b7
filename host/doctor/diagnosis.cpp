// SPDX-License-Identifier: MIT
#include "doctor/diagnosis.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "frames/frame_format.hpp"

namespace mediagrabber {

namespace {

constexpr double gigabit_bytes_per_s = 118e6;  ///< payload of gigabit Ethernet with packets of 1,500 bytes
constexpr double large_frame_bytes = 5.1e6;    ///< 2,464 x 2,056 pixels of 8 bits, a common 5-megapixel camera
constexpr std::uint32_t jumbo_mtu = 9000;
constexpr double disk_reserve = 1.5;  ///< the speed of a disk varies over time

std::string megabytes(double bytes_per_s) {
    return fmt::format("{:.0f} MB/s", bytes_per_s / 1e6);
}

finding good(std::string what, std::string found) {
    return {.level = severity::good, .what = std::move(what), .found = std::move(found), .wanted = {}, .command = {}};
}

finding evaluate_mtu(network_interface const& one, demand const& needed) {
    std::string const what = one.name + ": MTU";
    std::string const found = std::to_string(one.mtu) + " bytes";
    if (needed.packet_bytes && one.mtu < *needed.packet_bytes) {
        return {.level = severity::bad,
                .what = what,
                .found = found,
                .wanted = "at least transport.packet_size_bytes, " + std::to_string(*needed.packet_bytes),
                .command = "ip link set dev " + one.name + " mtu " + std::to_string(*needed.packet_bytes),
                .until_reboot = true};
    }
    if (!needed.packet_bytes && one.mtu < jumbo_mtu) {
        return {.level = severity::advice,
                .what = what,
                .found = found,
                .wanted = "9000 if the switch supports it: a sixth of the packets",
                .command = "ip link set dev " + one.name + " mtu 9000",
                .until_reboot = true};
    }
    return good(what, found);
}

finding evaluate_rp_filter(network_interface const& one) {
    constexpr std::uint32_t strict = 1;
    std::string const what = one.name + ": reverse-path filter";
    if (one.rp_filter != strict) {
        return good(what, one.rp_filter == 0 ? "off" : "loose");
    }
    return {.level = severity::advice,
            .what = what,
            .found = "strict",
            .wanted = "loose: otherwise cameras with an address of another network are not found",
            .command = "sysctl -w net.ipv4.conf.all.rp_filter=2 net.ipv4.conf." + one.name + ".rp_filter=2",
            .until_reboot = true};
}

finding evaluate_merging(network_interface const& one) {
    std::string const what = one.name + ": generic receive offload (GRO)";
    if (!one.gro) {
        return {.level = severity::unknown,
                .what = what,
                .found = "not known",
                .wanted = "on",
                .command = "ethtool -k " + one.name};
    }
    if (!*one.gro || !one.udp_gro.value_or(false)) {
        return {.level = severity::advice,
                .what = what,
                .found = *one.gro ? "on, but not for UDP" : "off",
                .wanted = "on for UDP: reduces the CPU time for receiving",
                .command = "ethtool -K " + one.name + " gro on rx-udp-gro-forwarding on",
                .until_reboot = true};
    }
    if (one.defers == false && one.rx_usecs.value_or(0) == 0) {
        return {.level = severity::advice,
                .what = what,
                .found = "on, but packets are processed one by one",
                .wanted = "deferred processing, so that packets can be merged",
                .command = "echo 50000 > /sys/class/net/" + one.name + "/gro_flush_timeout; echo 2 > /sys/class/net/" +
                           one.name + "/napi_defer_hard_irqs",
                .until_reboot = true};
    }
    return good(what, "on");
}

finding evaluate_moderation(network_interface const& one) {
    std::string const what = one.name + ": interrupt moderation";
    if (!one.rx_usecs) {
        return good(what, "adaptive, or set by the card");
    }
    if (*one.rx_usecs != 0) {
        return good(what, std::to_string(*one.rx_usecs) + " us");
    }
    return {.level = severity::advice,
            .what = what,
            .found = "off, one interrupt per packet",
            .wanted = "some tens of microseconds",
            .command = "ethtool -C " + one.name + " rx-usecs 50",
            .until_reboot = true};
}

finding evaluate_rx_ring(network_interface const& one) {
    std::string const what = one.name + ": NIC RX ring";
    if (!one.rx_ring || !one.max_rx_ring || *one.rx_ring >= *one.max_rx_ring) {
        return good(what, one.rx_ring ? std::to_string(*one.rx_ring) + " packets" : "not configurable");
    }
    return {.level = severity::advice,
            .what = what,
            .found = std::to_string(*one.rx_ring) + " packets",
            .wanted = "the maximum: it holds packets until the CPU processes them",
            .command = "ethtool -G " + one.name + " rx " + std::to_string(*one.max_rx_ring),
            .until_reboot = true};
}

finding evaluate_receive_buffer(machine const& found, demand const& needed) {
    auto const wanted = static_cast<std::uint64_t>(std::ceil(2 * needed.frame_bytes));
    std::string const what = "maximum socket receive buffer (net.core.rmem_max)";
    std::string const has = std::to_string(found.max_receive_buffer) + " bytes";
    if (found.max_receive_buffer >= wanted) {
        return good(what, has);
    }
    if (found.may_exceed_max_receive_buffer) {
        return good(what, has + ", may be exceeded by this user");
    }
    return {.level = severity::bad,
            .what = what,
            .found = has,
            .wanted = "two frames, " + std::to_string(wanted) + " bytes",
            .command = "sysctl -w net.core.rmem_max=" + std::to_string(wanted),
            .until_reboot = true};
}

finding evaluate_drops(machine const& found) {
    std::string const what = "datagrams dropped, socket receive buffer full";
    if (found.datagrams_dropped == 0) {
        return good(what, "none since boot");
    }
    return {.level = severity::advice,
            .what = what,
            .found = std::to_string(found.datagrams_dropped) + " since boot, all programs",
            .wanted = "none; watch whether the count rises while frames arrive",
            .command = "nstat -az UdpRcvbufErrors"};
}

finding evaluate_governor(machine const& found) {
    std::string const what = "CPU frequency governor";
    if (found.governors.empty()) {
        return good(what, "not configurable");
    }
    std::string all;
    for (auto const& one : found.governors) {
        all += (all.empty() ? "" : ", ") + one;
    }
    if (all == "performance") {
        return good(what, all);
    }
    return {.level = severity::advice,
            .what = what,
            .found = all,
            .wanted = "performance: packets wait while the CPU raises its frequency",
            .command = "cpupower frequency-set --governor performance",
            .until_reboot = true};
}

finding evaluate_clock(machine const& found) {
    std::string const what = "clock synchronisation";
    if (found.clock_is_synchronised.value_or(false)) {
        return good(what, "synchronised");
    }
    return {.level = found.clock_is_synchronised ? severity::bad : severity::unknown,
            .what = what,
            .found = found.clock_is_synchronised ? "not synchronised" : "not known",
            .wanted = "synchronised: timestamps are taken from this clock",
            .command = "apt-get install chrony"};
}

finding evaluate_firewall(machine const& found) {
    std::string const what = "firewall";
    switch (found.firewall) {
        case firewall_state::open:
            return good(what, "accepts packets");
        case firewall_state::filters:
            return {.level = severity::bad,
                    .what = what,
                    .found = "drops packets that no rule accepts",
                    .wanted = "UDP from the camera network accepted",
                    .command = "nft insert rule inet filter input ip saddr CAMERA meta l4proto udp accept"};
        case firewall_state::unknown:
            break;
    }
    return {.level = severity::unknown,
            .what = what,
            .found = "not readable by this user",
            .wanted = "UDP from the camera network accepted",
            .command = "sudo nft list ruleset"};
}

}  // namespace

demand demand_of(configuration const& configured) {
    demand needed{.frame_bytes = large_frame_bytes,
                  .bytes_per_s = gigabit_bytes_per_s,
                  .packet_bytes = configured.transport.packet_size_bytes};
    auto const* const format = frame_format_of_code(configured.image.format);
    if (format != nullptr && configured.image.width && configured.image.height) {
        needed.frame_bytes =
            static_cast<double>(format->line_bytes(static_cast<std::uint32_t>(*configured.image.width))) *
            static_cast<double>(*configured.image.height);
        if (configured.timing.frame_rate_hz) {
            needed.bytes_per_s = needed.frame_bytes * double{*configured.timing.frame_rate_hz};
        }
    }
    return needed;
}

std::vector<finding> diagnose(machine const& found, demand const& needed) {
    std::vector<finding> all;
    for (network_interface const& one : found.interfaces) {
        all.push_back(evaluate_mtu(one, needed));
        all.push_back(evaluate_rp_filter(one));
        if (one.has_hardware) {
            all.push_back(evaluate_merging(one));
            all.push_back(evaluate_moderation(one));
            all.push_back(evaluate_rx_ring(one));
        }
    }
    all.push_back(evaluate_receive_buffer(found, needed));
    all.push_back(evaluate_drops(found));
    all.push_back(evaluate_firewall(found));
    all.push_back(evaluate_governor(found));
    all.push_back(evaluate_clock(found));
    return all;
}

std::vector<finding> evaluate_cameras(std::optional<std::vector<listed_camera>> const& found) {
    if (!found) {
        return {{.level = severity::unknown,
                 .what = "cameras",
                 .found = "not searched, gevctl cannot be run",
                 .wanted = "all cameras reachable",
                 .command = "gevctl list"}};
    }
    if (found->empty()) {
        return {{.level = severity::advice,
                 .what = "cameras",
                 .found = "none acknowledged a search",
                 .wanted = "a camera that is switched on and connected",
                 .command = "gevctl list"}};
    }
    // With another camera at hand, one in another subnet may belong to another machine.
    bool const any_reachable = std::ranges::any_of(*found, &listed_camera::reachable);
    std::vector<finding> all;
    for (listed_camera const& each : *found) {
        std::string const what = each.interface + ": camera " + each.name;
        if (each.reachable) {
            all.push_back(good(what, "reachable at " + each.address +
                                         (each.controlled_by.empty() ? "" : ", controlled by " + each.controlled_by)));
        } else {
            bool const can_be_moved = !each.command_to_reach.empty();
            all.push_back({.level = any_reachable ? severity::advice : severity::bad,
                           .what = what,
                           .found = "does not respond at its address " + each.address,
                           .wanted = can_be_moved
                                         ? "an address in the subnet of " + each.interface + " that no other device has"
                                         : "a response; does another device have this address?",
                           .command = can_be_moved ? each.command_to_reach : "gevctl list"});
        }
    }
    return all;
}

finding evaluate_disk(double bytes_per_s, demand const& needed, std::string const& directory) {
    std::string const what = "write speed of " + directory;
    if (bytes_per_s >= disk_reserve * needed.bytes_per_s) {
        return good(what, megabytes(bytes_per_s));
    }
    return {
        .level = bytes_per_s < needed.bytes_per_s ? severity::bad : severity::advice,
        .what = what,
        .found = megabytes(bytes_per_s),
        .wanted = megabytes(disk_reserve * needed.bytes_per_s) + ": frames arrive at " + megabytes(needed.bytes_per_s),
        .command = "use another disk, a smaller region or frame rate, or output.format = \"none\""};
}

}  // namespace mediagrabber
