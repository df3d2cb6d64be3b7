// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "base/file_handle.hpp"

namespace mediagrabber {

/// Reads settings of a network card by the kernel's ethtool interface (SIOCETHTOOL). Reading needs no privilege.
class ethtool {
public:
    /// \param interface  name of the network interface
    explicit ethtool(std::string interface);

    /// \param request  a structure of linux/ethtool.h with its `cmd`; receives the result
    /// \return whether the driver supports the request
    bool query(void* request) const;
    /// \param command  one with a boolean result, for example ETHTOOL_GGRO
    std::optional<bool> flag(std::uint32_t command) const;
    /// \param name  of a feature, as listed by `ethtool -k`
    /// \return whether the feature is active; nothing if the kernel does not have it
    std::optional<bool> feature(std::string const& name) const;

private:
    std::optional<std::size_t> index_of_feature(std::string const& name) const;

    std::string interface_;
    file_handle socket_;
};

}  // namespace mediagrabber
