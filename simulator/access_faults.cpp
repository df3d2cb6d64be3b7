#include "access_faults.hpp"

#include <algorithm>

#include "bootstrap_registers.hpp"

namespace camsim {

namespace {

/// Every value of a feature begins with a word of its own.
bool touches(placed_feature const& one, std::uint32_t address, std::size_t length) {
    return one.address >= address && one.address - address < length;
}

}  // namespace

/// \return what is answered instead of carrying the access out; empty when nothing is in its way
std::optional<gvcp::status> access_faults::on_read(std::uint32_t address, std::size_t length) const {
    return answer_to(fault_kind::read_failure,
                     [&](fault const& one) { return is_feature(one.word("feature"), address, length); });
}

std::optional<gvcp::status> access_faults::on_write(std::uint32_t address, std::size_t length) const {
    if (address == bootstrap::control_channel_privilege) {
        return answer_to(fault_kind::control_denied, [](fault const&) { return true; });
    }
    return answer_to(fault_kind::write_refusal,
                     [&](fault const& one) { return is_feature(one.word("feature"), address, length); });
}

template <typename Concerns>
std::optional<gvcp::status> access_faults::answer_to(fault_kind kind, Concerns concerns) const {
    std::optional<gvcp::status> answer;
    faults_.for_each([&](active_fault& one) {
        if (one.what.kind == kind && !answer && concerns(one.what)) {
            ++one.hits;
            bool const denied = kind == fault_kind::control_denied;
            answer = denied ? gvcp::status::access_denied : static_cast<gvcp::status>(one.what.number("status"));
        }
    });
    return answer;
}

/// \param name of a feature; "any": of any that is no register of the standard
bool access_faults::is_feature(std::string const& name, std::uint32_t address, std::size_t length) const {
    return std::ranges::any_of(features_, [&](placed_feature const& one) {
        bool const meant = name == "any" ? !one.declaration.standard : one.declaration.name == name;
        return meant && !one.declaration.chunk_id && touches(one, address, length);
    });
}

}  // namespace camsim
