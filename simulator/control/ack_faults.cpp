// SPDX-License-Identifier: MIT
#include "control/ack_faults.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "base/byte_order.hpp"

namespace camsim {

namespace {

// Offsets in an acknowledge (GigE Vision: status, acknowledge, length, ack_id; 16 bits each).
constexpr std::size_t number_at = 2;
constexpr std::size_t id_at = 6;

constexpr bool is_one_of(std::uint16_t acknowledge, std::initializer_list<gvcp::command> commands) {
    return std::ranges::any_of(commands, [=](gvcp::command one) {
        return acknowledge == gvcp::acknowledge_of(static_cast<std::uint16_t>(one));
    });
}

/// Calls `change(ack)` for each selected ACK, and removes those for which it returns false.
/// \return whether any was selected
template <typename predicate, typename modifier>
bool change_selected(std::vector<gvcp_ack>& acks, predicate selects, modifier change) {
    bool any = false;
    std::erase_if(acks, [&](gvcp_ack& ack) {
        bool const selected = selects(ack);
        any = any || selected;
        return selected && !change(ack);
    });
    return any;
}

void delay(gvcp_ack& ack, double milliseconds) {
    ack.delay += std::chrono::milliseconds(static_cast<std::int64_t>(milliseconds));
}

/// An ACK with an error status has no payload.
void replace_by_error(gvcp_ack& ack, double status) {
    std::uint16_t const number = load_be16(ack.datagram, number_at);
    std::uint16_t const id = load_be16(ack.datagram, id_at);
    ack.datagram =
        gvcp::encode_acknowledge(static_cast<gvcp::status>(status), static_cast<std::uint16_t>(number - 1U), id, {});
}

/// Inverts every other bit, so that the ID differs from those of recent commands, which are consecutive.
void change_id(gvcp_ack& ack) {
    auto const id = static_cast<std::uint16_t>(load_be16(ack.datagram, id_at) ^ 0x5555U);
    store_be16(ack.datagram, id_at, id);
}

}  // namespace

std::vector<gvcp_ack> ack_faults::filter(std::vector<gvcp_ack> acks) {
    faults_.for_each([&](active_fault& one) {
        if (definition_of(one.what.kind).domain == fault_domain::control) {
            one.hits += apply(one, acks) ? 1U : 0U;
        }
    });
    return acks;
}

bool ack_faults::affects(active_fault const& one, gvcp_ack const& ack) {
    using enum gvcp::command;
    std::string const& commands = one.what.text("commands");
    std::uint16_t const number = load_be16(ack.datagram, number_at);
    return commands == "all" || (commands == "discovery" && is_one_of(number, {discovery})) ||
           (commands == "reads" && is_one_of(number, {readreg, readmem})) ||
           (commands == "writes" && is_one_of(number, {writereg, writemem, pending}));
}

/// \param one a fault of the control domain
/// \return whether it was applied
bool ack_faults::apply(active_fault& one, std::vector<gvcp_ack>& acks) {
    auto const selects = [&](gvcp_ack const& ack) { return affects(one, ack) && faults_.next_draw_selects(one); };
    auto const always = [](auto change) {
        return [=](gvcp_ack& ack) {
            change(ack);
            return true;
        };
    };
    switch (one.what.kind) {
        case fault_kind::ack_delay:
            return change_selected(
                acks, [&](gvcp_ack const& ack) { return affects(one, ack); },
                always([ms = one.what.number("delay_ms")](gvcp_ack& ack) { delay(ack, ms); }));
        case fault_kind::ack_loss:
            return change_selected(acks, selects, [](gvcp_ack&) { return false; });
        case fault_kind::ack_duplication: {
            std::vector<gvcp_ack> copies;
            change_selected(acks, selects, always([&](gvcp_ack& ack) { copies.push_back(ack); }));
            acks.insert(acks.end(), copies.begin(), copies.end());
            return !copies.empty();
        }
        case fault_kind::ack_error:
            return change_selected(acks, selects, always([status = one.what.number("status")](gvcp_ack& ack) {
                                       replace_by_error(ack, status);
                                   }));
        case fault_kind::ack_wrong_id:
            return change_selected(acks, selects, always(change_id));
        case fault_kind::packet_loss:
        case fault_kind::loss_burst:
        case fault_kind::packet_reordering:
        case fault_kind::packet_duplication:
        case fault_kind::header_corruption:
        case fault_kind::payload_corruption:
        case fault_kind::leader_loss:
        case fault_kind::trailer_loss:
        case fault_kind::leader_size:
        case fault_kind::leader_format:
        case fault_kind::chunk_length:
        case fault_kind::block_drop:
        case fault_kind::control_denied:
        case fault_kind::read_failure:
        case fault_kind::write_refusal:
        case fault_kind::freeze:
        case fault_kind::timestamp_jump:
        case fault_kind::timestamp_wrap:
        case fault_kind::overheating:
        case fault_kind::power_cycle:
            break;  // other domains; not passed to this function
    }
    throw std::logic_error("fault " + std::string(definition_of(one.what.kind).name) + " does not apply to ACKs");
}

}  // namespace camsim
