#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "file_handle.hpp"

namespace mediagrabber {

/// What the kernel tells of a network card when it is asked as the program ethtool asks. Reading needs no privilege.
class ethtool {
public:
    explicit ethtool(std::string interface);

    /// \param question one of the structures of linux/ethtool.h; receives the answer \return whether there is one
    bool ask(void* question) const;
    /// \param command one that a yes or no answers
    std::optional<bool> flag(std::uint32_t command) const;
    /// Whether a feature is on. \param name as `ethtool -k` has it \return nothing when the kernel knows no such
    /// feature
    std::optional<bool> feature(std::string const& name) const;

private:
    std::optional<std::size_t> place_of_feature(std::string const& name) const;

    std::string interface_;
    file_handle socket_;
};

}  // namespace mediagrabber
