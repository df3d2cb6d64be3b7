#include "doctor/diagnosis.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "pixel_format.hpp"

namespace mediagrabber {

namespace {

constexpr double gigabit_bytes_per_s = 118e6;  ///< what packets of 1,500 bytes leave of it for pixels
constexpr double large_frame_bytes = 5.1e6;    ///< of a camera with 2,464 x 2,056 pixels
constexpr std::uint32_t jumbo_mtu = 9000;
constexpr double disk_reserve = 1.5;  ///< a disk is not as fast at every moment as it is on average

std::string megabytes(double bytes_per_s) {
    char text[64];
    std::snprintf(text, sizeof text, "%.0f MB/s", bytes_per_s / 1e6);
    return text;
}

finding good(std::string what, std::string found) {
    return {.judged = verdict::good, .what = std::move(what), .found = std::move(found), .wanted = {}, .command = {}};
}

finding judge_mtu(network_interface const& one, demand const& asked) {
    std::string const what = one.name + ": packet size (MTU)";
    std::string const found = std::to_string(one.mtu) + " bytes";
    if (asked.packet_bytes && one.mtu < *asked.packet_bytes) {
        return {.judged = verdict::bad,
                .what = what,
                .found = found,
                .wanted = "no less than transport.packet_size, " + std::to_string(*asked.packet_bytes),
                .command = "ip link set dev " + one.name + " mtu " + std::to_string(*asked.packet_bytes)};
    }
    if (!asked.packet_bytes && one.mtu < jumbo_mtu) {
        return {.judged = verdict::advice,
                .what = what,
                .found = found,
                .wanted = "9000, with a switch that lets them through: a sixth of the packets",
                .command = "ip link set dev " + one.name + " mtu 9000"};
    }
    return good(what, found);
}

finding judge_rp_filter(network_interface const& one) {
    constexpr std::uint32_t strict = 1;
    std::string const what = one.name + ": reverse-path filter";
    if (one.rp_filter != strict) {
        return good(what, one.rp_filter == 0 ? "off" : "loose");
    }
    return {.judged = verdict::advice,
            .what = what,
            .found = "strict",
            .wanted = "loose: else cameras with an address of another network are not found",
            .command = "sysctl -w net.ipv4.conf.all.rp_filter=2 net.ipv4.conf." + one.name + ".rp_filter=2"};
}

finding judge_merging(network_interface const& one) {
    std::string const what = one.name + ": merging of packets (GRO)";
    if (!one.gro) {
        return {.judged = verdict::unknown,
                .what = what,
                .found = "not known",
                .wanted = "on",
                .command = "ethtool -k " + one.name};
    }
    if (!*one.gro || !one.udp_gro.value_or(false)) {
        return {.judged = verdict::advice,
                .what = what,
                .found = *one.gro ? "on, but not for datagrams" : "off",
                .wanted = "on for datagrams: receiving then takes less processor time",
                .command = "ethtool -K " + one.name + " gro on rx-udp-gro-forwarding on"};
    }
    if (one.gathers == false && one.rx_usecs.value_or(0) == 0) {
        return {.judged = verdict::advice,
                .what = what,
                .found = "on, but packets are taken one by one",
                .wanted = "a time in which packets gather",
                .command = "echo 50000 > /sys/class/net/" + one.name + "/gro_flush_timeout; echo 2 > /sys/class/net/" +
                           one.name + "/napi_defer_hard_irqs"};
    }
    return good(what, "on");
}

finding judge_moderation(network_interface const& one) {
    std::string const what = one.name + ": interrupt moderation";
    if (!one.rx_usecs) {
        return good(what, "adaptive, or the card's own");
    }
    if (*one.rx_usecs != 0) {
        return good(what, std::to_string(*one.rx_usecs) + " us");
    }
    return {.judged = verdict::advice,
            .what = what,
            .found = "none, an interrupt a packet",
            .wanted = "some ten microseconds",
            .command = "ethtool -C " + one.name + " rx-usecs 50"};
}

finding judge_ring(network_interface const& one) {
    std::string const what = one.name + ": room in the card";
    if (!one.ring || !one.ring_most || *one.ring >= *one.ring_most) {
        return good(what, one.ring ? std::to_string(*one.ring) + " packets" : "not the card's to choose");
    }
    return {.judged = verdict::advice,
            .what = what,
            .found = std::to_string(*one.ring) + " packets",
            .wanted = "all that it can have: it bridges the time until the processor comes",
            .command = "ethtool -G " + one.name + " rx " + std::to_string(*one.ring_most)};
}

finding judge_socket_room(machine const& found, demand const& asked) {
    auto const wanted = static_cast<std::uint64_t>(std::ceil(2 * asked.frame_bytes));
    std::string const what = "room in sockets (net.core.rmem_max)";
    std::string const has = std::to_string(found.socket_room_most) + " bytes";
    if (found.socket_room_most >= wanted) {
        return good(what, has);
    }
    if (found.may_exceed_socket_room) {
        return good(what, has + ", which this user may exceed");
    }
    return {.judged = verdict::bad,
            .what = what,
            .found = has,
            .wanted = "two frames, " + std::to_string(wanted) + " bytes",
            .command = "sysctl -w net.core.rmem_max=" + std::to_string(wanted)};
}

finding judge_drops(machine const& found) {
    std::string const what = "datagrams dropped for want of room";
    if (found.datagrams_dropped == 0) {
        return good(what, "none since the start");
    }
    return {.judged = verdict::advice,
            .what = what,
            .found = std::to_string(found.datagrams_dropped) + " since the start, by any program",
            .wanted = "none; watch whether it grows while frames come",
            .command = "nstat -az UdpRcvbufErrors"};
}

finding judge_governor(machine const& found) {
    std::string const what = "processor clock (governor)";
    if (found.governors.empty()) {
        return good(what, "not this machine's to choose");
    }
    std::string all;
    for (auto const& one : found.governors) {
        all += (all.empty() ? "" : ", ") + one;
    }
    if (all == "performance") {
        return good(what, all);
    }
    return {.judged = verdict::advice,
            .what = what,
            .found = all,
            .wanted = "performance: a clock that has to speed up first lets packets wait",
            .command = "cpupower frequency-set --governor performance"};
}

finding judge_clock(machine const& found) {
    std::string const what = "clock synchronisation";
    if (found.clock_is_synchronised.value_or(false)) {
        return good(what, "synchronised");
    }
    return {.judged = found.clock_is_synchronised ? verdict::bad : verdict::unknown,
            .what = what,
            .found = found.clock_is_synchronised ? "not synchronised" : "not known",
            .wanted = "synchronised: timestamps are this clock's",
            .command = "apt-get install chrony"};
}

finding judge_firewall(machine const& found) {
    std::string const what = "firewall";
    switch (found.firewall) {
        case firewall_state::open:
            return good(what, "lets packets in");
        case firewall_state::filters:
            return {.judged = verdict::bad,
                    .what = what,
                    .found = "drops what no rule lets in",
                    .wanted = "UDP from the cameras' network let in",
                    .command = "nft insert rule inet filter input ip saddr CAMERA meta l4proto udp accept"};
        default:
            return {.judged = verdict::unknown,
                    .what = what,
                    .found = "can't be looked at by this user",
                    .wanted = "UDP from the cameras' network let in",
                    .command = "sudo nft list ruleset"};
    }
}

}  // namespace

demand demand_of(configuration const& configured) {
    demand asked{
        .frame_bytes = large_frame_bytes, .bytes_per_s = gigabit_bytes_per_s, .packet_bytes = configured.packet_size};
    auto const* const format = pixel_format_of_code(configured.format);
    if (format != nullptr && configured.width && configured.height) {
        asked.frame_bytes = static_cast<double>(format->line_bytes(static_cast<std::uint32_t>(*configured.width))) *
                            static_cast<double>(*configured.height);
        if (configured.frame_rate) {
            asked.bytes_per_s = asked.frame_bytes * double{*configured.frame_rate};
        }
    }
    return asked;
}

std::vector<finding> diagnose(machine const& found, demand const& asked) {
    std::vector<finding> all;
    for (network_interface const& one : found.interfaces) {
        all.push_back(judge_mtu(one, asked));
        all.push_back(judge_rp_filter(one));
        if (one.has_hardware) {
            all.push_back(judge_merging(one));
            all.push_back(judge_moderation(one));
            all.push_back(judge_ring(one));
        }
    }
    all.push_back(judge_socket_room(found, asked));
    all.push_back(judge_drops(found));
    all.push_back(judge_firewall(found));
    all.push_back(judge_governor(found));
    all.push_back(judge_clock(found));
    return all;
}

finding judge_disk(double bytes_per_s, demand const& asked, std::string const& directory) {
    std::string const what = "disk of " + directory;
    if (bytes_per_s >= disk_reserve * asked.bytes_per_s) {
        return good(what, megabytes(bytes_per_s));
    }
    return {
        .judged = bytes_per_s < asked.bytes_per_s ? verdict::bad : verdict::advice,
        .what = what,
        .found = megabytes(bytes_per_s),
        .wanted = megabytes(disk_reserve * asked.bytes_per_s) + ": frames come with " + megabytes(asked.bytes_per_s),
        .command = "another disk, a smaller region or rate, or output.format = \"none\""};
}

}  // namespace mediagrabber
