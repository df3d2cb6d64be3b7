// SPDX-License-Identifier: MIT
#include "doctor/machine.hpp"

#include <ifaddrs.h>
#include <linux/capability.h>
#include <linux/ethtool.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/timex.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "base/file_handle.hpp"
#include "doctor/command_output.hpp"
#include "doctor/ethtool.hpp"

namespace mediagrabber {

namespace {

namespace fs = std::filesystem;

/// \return the first line of a file; nothing if it cannot be read
std::optional<std::string> line_of(fs::path const& file) {
    std::ifstream in(file);
    std::string line;
    return std::getline(in, line) ? std::optional(line) : std::nullopt;
}

std::optional<std::uint64_t> number_in(fs::path const& file) {
    auto const line = line_of(file);
    std::uint64_t number = 0;
    bool const is_number = line && std::from_chars(line->data(), line->data() + line->size(), number).ec == std::errc();
    return is_number ? std::optional(number) : std::nullopt;
}

std::set<std::string> interfaces_with_addresses() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot list the network interfaces");
    }
    std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> const owned(list, freeifaddrs);
    std::set<std::string> names;
    for (ifaddrs const* one = list; one != nullptr; one = one->ifa_next) {
        bool const has_address = one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_INET;
        if (has_address && (one->ifa_flags & IFF_UP) != 0) {
            names.insert(one->ifa_name);
        }
    }
    return names;
}

/// Uses a system call, because /sys may show another network namespace. \return bytes, 0 if not known
std::uint32_t mtu_of(std::string const& interface) {
    file_handle const socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strncpy(request.ifr_name, interface.c_str(), sizeof request.ifr_name - 1);
    bool const is_known = ioctl(socket.get(), SIOCGIFMTU, &request) == 0;
    return is_known ? static_cast<std::uint32_t>(request.ifr_mtu) : 0;
}

/// \return whether packets are collected before processing: by threaded NAPI, or by deferred interrupts with a timeout
std::optional<bool> defers(fs::path const& about) {
    auto const threaded = number_in(about / "threaded");
    auto const wait_ns = number_in(about / "gro_flush_timeout");
    auto const deferred = number_in(about / "napi_defer_hard_irqs");
    if (!threaded && !wait_ns) {
        return {};
    }
    return threaded.value_or(0) != 0 || (wait_ns.value_or(0) != 0 && deferred.value_or(0) != 0);
}

network_interface examine_interface(fs::path const& root, std::string const& name) {
    fs::path const about = root / "sys/class/net" / name;
    fs::path const ipv4 = root / "proc/sys/net/ipv4/conf";
    ethtool const card(name);
    network_interface found;
    found.name = name;
    found.mtu = mtu_of(name);
    found.rp_filter = static_cast<std::uint32_t>(
        std::max(number_in(ipv4 / "all/rp_filter").value_or(0), number_in(ipv4 / name / "rp_filter").value_or(0)));
    found.has_hardware = fs::exists(about / "device");
    found.gro = card.flag(ETHTOOL_GGRO);
    found.udp_gro = card.feature("rx-udp-gro-forwarding");
    found.defers = defers(about);
    ethtool_coalesce moderation{};
    moderation.cmd = ETHTOOL_GCOALESCE;
    if (card.query(&moderation) && moderation.use_adaptive_rx_coalesce == 0) {
        found.rx_usecs = moderation.rx_coalesce_usecs;
    }
    ethtool_ringparam rings{};
    rings.cmd = ETHTOOL_GRINGPARAM;
    if (card.query(&rings)) {
        found.rx_ring = rings.rx_pending;
        found.max_rx_ring = rings.rx_max_pending;
    }
    return found;
}

/// \return column RcvbufErrors of the two "Udp:" lines in /proc/net/snmp, of which the first has the names
std::uint64_t dropped_datagrams(fs::path const& root) {
    std::ifstream in(root / "proc/net/snmp");
    std::string names;
    for (std::string line; std::getline(in, line);) {
        if (!line.starts_with("Udp:")) {
            continue;
        }
        if (names.empty()) {
            names = line;
            continue;
        }
        std::istringstream columns(names);
        std::istringstream values(line);
        std::string value;
        for (std::string column; columns >> column && values >> value;) {
            if (column == "RcvbufErrors") {
                return std::strtoull(value.c_str(), nullptr, 10);
            }
        }
    }
    return 0;
}

std::vector<std::string> governors(fs::path const& root) {
    std::set<std::string> found;
    std::error_code none;
    for (auto const& entry : fs::directory_iterator(root / "sys/devices/system/cpu", none)) {
        if (auto const governor = line_of(entry.path() / "cpufreq/scaling_governor")) {
            found.insert(*governor);
        }
    }
    return {found.begin(), found.end()};
}

bool has_net_admin(fs::path const& root) {
    std::ifstream in(root / "proc/self/status");
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("CapEff:")) {
            return (std::strtoull(line.c_str() + std::strlen("CapEff:"), nullptr, 16) >> CAP_NET_ADMIN & 1U) != 0;
        }
    }
    return false;
}

std::optional<bool> is_clock_synchronised() {
    timex state{};
    int const clock = adjtimex(&state);
    return clock < 0 ? std::nullopt : std::optional(clock != TIME_ERROR && (state.status & STA_UNSYNC) == 0);
}

/// \return whether an entry is an input chain that drops by default. Rules that drop packets are not examined.
bool filters_input(nlohmann::json const& entry) {
    auto const chain = entry.find("chain");
    return chain != entry.end() && chain->value("hook", "") == "input" && chain->value("policy", "") == "drop";
}

firewall_state examine_firewall() {
    auto const rules = output_of("nft -j list ruleset 2>/dev/null");
    auto const read = nlohmann::json::parse(rules.value_or(""), nullptr, false);
    if (read.is_discarded() || !read.contains("nftables")) {
        return firewall_state::unknown;
    }
    return std::ranges::any_of(read["nftables"], filters_input) ? firewall_state::filters : firewall_state::open;
}

}  // namespace

machine examine_machine(fs::path const& root, std::string const& only) {
    machine found;
    auto names = interfaces_with_addresses();
    if (!only.empty()) {
        if (!names.contains(only)) {
            throw std::runtime_error("no network interface " + only +
                                     " that is up and has an IPv4 address; see `ip addr`");
        }
        names = {only};
    }
    for (std::string const& name : names) {
        found.interfaces.push_back(examine_interface(root, name));
    }
    found.max_receive_buffer = number_in(root / "proc/sys/net/core/rmem_max").value_or(0);
    found.may_exceed_max_receive_buffer = has_net_admin(root);
    found.datagrams_dropped = dropped_datagrams(root);
    found.governors = governors(root);
    found.clock_is_synchronised = is_clock_synchronised();
    found.firewall = examine_firewall();
    return found;
}

}  // namespace mediagrabber
