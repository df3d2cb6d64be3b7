// SPDX-License-Identifier: MIT
#include "control/access_faults.hpp"

#include <algorithm>

#include "device/bootstrap_registers.hpp"

namespace camsim {

namespace {

/// Whether an access includes the first word of a feature's value, which every use of the feature does.
bool touches(placed_feature const& one, std::uint32_t address, std::size_t length) {
    return one.address >= address && one.address - address < length;
}

}  // namespace

std::optional<gvcp::status> access_faults::on_read(std::uint32_t address, std::size_t length) const {
    return status_from(fault_kind::read_failure,
                       [&](fault const& one) { return is_feature(one.text("feature"), address, length); });
}

std::optional<gvcp::status> access_faults::on_write(std::uint32_t address, std::size_t length) const {
    if (address == bootstrap::control_channel_privilege) {
        return status_from(fault_kind::control_denied, [](fault const&) { return true; });
    }
    return status_from(fault_kind::write_refusal,
                       [&](fault const& one) { return is_feature(one.text("feature"), address, length); });
}

template <typename predicate>
std::optional<gvcp::status> access_faults::status_from(fault_kind kind, predicate affects) const {
    std::optional<gvcp::status> status;
    faults_.for_each([&](active_fault& one) {
        if (one.what.kind == kind && !status && affects(one.what)) {
            ++one.hits;
            bool const denied = kind == fault_kind::control_denied;
            status = denied ? gvcp::status::access_denied : static_cast<gvcp::status>(one.what.number("status"));
        }
    });
    return status;
}

/// \param name a feature's name; "any": every feature that is not in a bootstrap register
bool access_faults::is_feature(std::string const& name, std::uint32_t address, std::size_t length) const {
    return std::ranges::any_of(features_, [&](placed_feature const& one) {
        bool const named = name == "any" ? !one.declaration.standard : one.declaration.name == name;
        return named && !one.declaration.chunk_id && touches(one, address, length);
    });
}

}  // namespace camsim
