// SPDX-License-Identifier: MIT
#include "doctor/ethtool.hpp"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

namespace mediagrabber {

ethtool::ethtool(std::string interface)
    : interface_(std::move(interface)), socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

bool ethtool::query(void* request) const {
    ifreq call{};
    std::strncpy(call.ifr_name, interface_.c_str(), sizeof call.ifr_name - 1);
    call.ifr_data = static_cast<char*>(request);
    return ioctl(socket_.get(), SIOCETHTOOL, &call) == 0;
}

std::optional<bool> ethtool::flag(std::uint32_t command) const {
    ethtool_value value{.cmd = command, .data = 0};
    return query(&value) ? std::optional(value.data != 0) : std::nullopt;
}

std::optional<bool> ethtool::feature(std::string const& name) const {
    auto const index = index_of_feature(name);
    if (!index) {
        return {};
    }
    constexpr std::size_t features_per_block = 32;
    std::size_t const last = *index / features_per_block;
    std::size_t const block_at = sizeof(ethtool_gfeatures) + last * sizeof(ethtool_get_features_block);
    std::vector<std::uint32_t> result((block_at + sizeof(ethtool_get_features_block)) / sizeof(std::uint32_t));
    result[0] = ETHTOOL_GFEATURES;
    result[1] = static_cast<std::uint32_t>(last + 1);
    if (!query(result.data())) {
        return {};
    }
    ethtool_get_features_block block{};
    std::memcpy(&block, reinterpret_cast<char const*>(result.data()) + block_at, sizeof block);
    return (block.active >> *index % features_per_block & 1U) != 0;
}

std::optional<std::size_t> ethtool::index_of_feature(std::string const& name) const {
    // An ethtool_sset_info with space for the one length that is requested.
    std::array<std::uint32_t, sizeof(ethtool_sset_info) / sizeof(std::uint32_t) + 1> sizes{};
    std::uint64_t const wanted = 1ULL << ETH_SS_FEATURES;
    sizes[0] = ETHTOOL_GSSET_INFO;
    std::memcpy(reinterpret_cast<char*>(sizes.data()) + offsetof(ethtool_sset_info, sset_mask), &wanted, sizeof wanted);
    if (!query(sizes.data())) {
        return {};
    }
    std::size_t const count = sizes.back();
    std::vector<std::uint32_t> result((sizeof(ethtool_gstrings) + count * ETH_GSTRING_LEN) / sizeof(std::uint32_t));
    result[0] = ETHTOOL_GSTRINGS;
    result[1] = ETH_SS_FEATURES;
    result[2] = static_cast<std::uint32_t>(count);
    if (!query(result.data())) {
        return {};
    }
    auto const* const names = reinterpret_cast<char const*>(result.data()) + sizeof(ethtool_gstrings);
    for (std::size_t i = 0; i < count; ++i) {
        if (std::strncmp(names + i * ETH_GSTRING_LEN, name.c_str(), ETH_GSTRING_LEN) == 0) {
            return i;
        }
    }
    return {};
}

}  // namespace mediagrabber
