#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "active_faults.hpp"
#include "feature.hpp"
#include "gvcp_packet.hpp"

namespace camsim {

/// What the faults in force make of accesses to registers: a filter that sees addresses.
class access_faults {
public:
    access_faults(active_faults& faults, std::vector<placed_feature> const& features)
        : faults_(faults), features_(features) {}

    std::optional<gvcp::status> on_read(std::uint32_t address, std::size_t length) const;
    std::optional<gvcp::status> on_write(std::uint32_t address, std::size_t length) const;

private:
    template <typename Concerns>
    std::optional<gvcp::status> answer_to(fault_kind kind, Concerns concerns) const;
    bool is_feature(std::string const& name, std::uint32_t address, std::size_t length) const;

    active_faults& faults_;
    std::vector<placed_feature> const& features_;
};

}  // namespace camsim
