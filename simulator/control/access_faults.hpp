// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "faults/active_faults.hpp"
#include "genicam/feature.hpp"
#include "protocol/gvcp_packet.hpp"

namespace camsim {

/// Applies the faults of the access domain: makes reads and writes of registers fail.
///
/// gvcp_device calls it before each access. It holds references only; its thread safety is that of active_faults.
class access_faults {
public:
    /// \param features the camera's features with their addresses
    access_faults(active_faults& faults, std::vector<placed_feature> const& features)
        : faults_(faults), features_(features) {}

    /// \param length of the access in bytes
    /// \return the status to return instead of reading; empty if no fault applies
    std::optional<gvcp::status> on_read(std::uint32_t address, std::size_t length) const;

    /// \param length of the access in bytes
    /// \return the status to return instead of writing; empty if no fault applies
    std::optional<gvcp::status> on_write(std::uint32_t address, std::size_t length) const;

private:
    template <typename predicate>
    std::optional<gvcp::status> status_from(fault_kind kind, predicate affects) const;
    bool is_feature(std::string const& name, std::uint32_t address, std::size_t length) const;

    active_faults& faults_;
    std::vector<placed_feature> const& features_;
};

}  // namespace camsim
