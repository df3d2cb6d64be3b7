// SPDX-License-Identifier: MIT
#include "control/gvcp_device.hpp"

#include <array>
#include <utility>

#include "base/byte_order.hpp"
#include "device/bootstrap_registers.hpp"

namespace camsim {

namespace {

constexpr std::uint16_t number_of(gvcp::command one) {
    return static_cast<std::uint16_t>(one);
}

constexpr bool is_broadcast_command(std::uint16_t number) {
    return number == number_of(gvcp::command::discovery) || number == number_of(gvcp::command::forceip) ||
           number == number_of(gvcp::command::action);
}

}  // namespace

gvcp_device::gvcp_device(camera_state& state, register_map const& registers, move_function move,
                         access_faults const* faults)
    : state_(state), registers_(registers), move_(std::move(move)), faults_(faults) {}

gvcp_outcome gvcp_device::handle(std::span<std::byte const> datagram, endpoint const& sender, time_point now,
                                 delivery how) {
    auto const header = gvcp::decode_command_header(datagram);
    if (!header || (how == delivery::broadcast && !is_broadcast_command(header->number))) {
        return {};
    }
    request const one{*header, datagram.subspan(gvcp::header_size), sender, now};
    if (!gvcp::has_consistent_length(*header, datagram) || header->request_id == 0) {
        return {make_acks(one, {gvcp::status::invalid_header, {}}), std::nullopt};
    }
    state_.control.on_command(sender, now);
    if (header->number == number_of(gvcp::command::packetresend)) {
        return {{}, resend(one)};
    }
    return {make_acks(one, execute(one)), std::nullopt};
}

gvcp_device::reply gvcp_device::execute(request const& one) {
    switch (static_cast<gvcp::command>(one.header.number)) {
        case gvcp::command::discovery:
            return discover();
        case gvcp::command::forceip:
            return force_ip(one);
        case gvcp::command::action:
            return run_action(one);
        case gvcp::command::readreg:
            return read_registers(one);
        case gvcp::command::writereg:
            return write_registers(one);
        case gvcp::command::readmem:
            return read_memory(one);
        case gvcp::command::writemem:
            return write_memory(one);
        case gvcp::command::packetresend:  // handled before
        case gvcp::command::pending:       // not a command
            break;
    }
    return {gvcp::status::not_implemented, {}};  // also for numbers that are not in the enumeration
}

/// The ACK, if the command requires one. PENDING_ACK precedes it if writes take time and the application has enabled
/// PENDING_ACK in the GVCP configuration register.
std::vector<gvcp_ack> gvcp_device::make_acks(request const& one, reply const& result) const {
    std::vector<gvcp_ack> all;
    if (!one.header.acknowledge_required() || result.silent) {
        return all;
    }
    std::chrono::milliseconds const delay = result.is_write ? state_.options.write_time : std::chrono::milliseconds(0);
    bool const pending_enabled = (state_.gvcp_configuration & bootstrap::pending_acknowledge_enable) != 0;
    if (delay.count() > 0 && pending_enabled) {
        all.push_back({gvcp::encode_pending(one.header.request_id, static_cast<std::uint16_t>(delay.count()))});
    }
    all.push_back(
        {gvcp::encode_acknowledge(result.status, one.header.number, one.header.request_id, result.payload), delay});
    return all;
}

/// The payload of DISCOVERY_ACK is a copy of the first bootstrap registers.
gvcp_device::reply gvcp_device::discover() {
    std::vector<std::byte> payload(bootstrap::discovery_size);
    gvcp::status const result = registers_.read(bootstrap::version, payload);
    return {result, std::move(payload)};
}

/// FORCEIP fails while an application has control, and for an address that this host does not have. Address 0 keeps the
/// present one.
gvcp_device::reply gvcp_device::force_ip(request const& one) {
    auto const decoded = gvcp::decode_forceip(one.payload);
    if (!decoded) {
        return {gvcp::status::invalid_parameter, {}};
    }
    if (decoded->mac != state_.identity.mac) {
        return {.status = gvcp::status::success, .payload = {}, .silent = true};  // the command is for another device
    }
    if (state_.control.primary()) {
        return {gvcp::status::access_denied, {}};
    }
    network_settings& network = state_.network;
    if (decoded->address != 0 && decoded->address != network.address) {
        if (!move_(decoded->address)) {
            return {gvcp::status::invalid_parameter, {}};
        }
        network.address = decoded->address;
        network.subnet_mask = decoded->subnet_mask;
        network.gateway = decoded->gateway;
    }
    return {gvcp::status::success, {}};
}

/// Any application may send an action, but it is executed only while one has control.
gvcp_device::reply gvcp_device::run_action(request const& one) {
    auto const decoded = gvcp::decode_action((one.header.flags & gvcp::flag_scheduled) != 0, one.payload);
    if (!decoded) {
        return {gvcp::status::invalid_parameter, {}};
    }
    action_settings const& mine = state_.action;
    if (mine.device_key == 0 || decoded->device_key != mine.device_key || decoded->group_key != mine.group_key ||
        (decoded->group_mask & mine.group_mask) == 0) {
        return {.status = gvcp::status::success, .payload = {}, .silent = true};  // the command is for other devices
    }
    if (!state_.control.primary()) {
        return {gvcp::status::access_denied, {}};
    }
    if (!decoded->time) {
        state_.fire_trigger(trigger_source::action1, one.now);
        return {gvcp::status::success, {}};
    }
    camera_time const present = state_.clock.at(one.now);
    auto const ahead = static_cast<std::int64_t>(*decoded->time - state_.clock.ticks_at(present));
    if (ahead < 0) {
        state_.fire_trigger(trigger_source::action1, one.now);
        return {gvcp::status::action_late, {}};
    }
    long double const seconds =
        static_cast<long double>(ahead) / static_cast<long double>(state_.clock.tick_frequency());
    constexpr long double max_seconds = 86'400.0L;  // a day; the host's clock overflows only after centuries
    if (seconds > max_seconds || actions_.size() >= max_scheduled_actions) {
        return {seconds > max_seconds ? gvcp::status::invalid_parameter : gvcp::status::busy, {}};
    }
    actions_.insert(state_.clock.host_at(present + camera_time(seconds * 1e9L)));
    return {gvcp::status::success, {}};
}

gvcp_device::reply gvcp_device::read_registers(request const& one) const {
    auto const addresses = gvcp::decode_readreg(one.payload);
    if (!addresses) {
        return {gvcp::status::invalid_parameter, {}};
    }
    if (!state_.control.may_read(one.sender)) {
        return {gvcp::status::access_denied, {}};
    }
    gvcp::status result = gvcp::status::success;
    std::vector<std::uint32_t> values;
    for (std::uint32_t const address : *addresses) {
        std::array<std::byte, 4> word{};
        result = read(address, word);
        if (result != gvcp::status::success) {
            break;
        }
        values.push_back(load_be32(word, 0));
    }
    return {result, gvcp::encode_readreg_payload(values)};
}

/// Writes registers in order up to the first error; the ACK carries the number of registers written.
gvcp_device::reply gvcp_device::write_registers(request const& one) {
    auto const writes = gvcp::decode_writereg(one.payload);
    if (!writes) {
        return {gvcp::status::invalid_parameter, {}};
    }
    gvcp::status result = gvcp::status::success;
    std::uint16_t written = 0;
    for (gvcp::register_write const& each : *writes) {
        std::array<std::byte, 4> word{};
        store_be32(word, 0, each.value);
        result = write(one, each.address, word);
        if (result != gvcp::status::success) {
            break;
        }
        ++written;
    }
    return {.status = result, .payload = gvcp::encode_write_index_payload(written), .is_write = true};
}

gvcp_device::reply gvcp_device::read_memory(request const& one) const {
    auto const decoded = gvcp::decode_readmem(one.payload);
    if (!decoded || decoded->count == 0 || decoded->count > gvcp::max_memory_block) {
        return {gvcp::status::invalid_parameter, {}};
    }
    if (!state_.control.may_read(one.sender)) {
        return {gvcp::status::access_denied, {}};
    }
    std::vector<std::byte> data(decoded->count);
    gvcp::status const result = read(decoded->address, data);
    if (result != gvcp::status::success) {
        return {result, {}};
    }
    return {result, gvcp::encode_readmem_payload(decoded->address, data)};
}

gvcp_device::reply gvcp_device::write_memory(request const& one) {
    auto const decoded = gvcp::decode_writemem(one.payload);
    if (!decoded) {
        return {gvcp::status::invalid_parameter, {}};
    }
    gvcp::status const result = write(one, decoded->address, decoded->data);
    auto const written = static_cast<std::uint16_t>(result == gvcp::status::success ? decoded->data.size() : 0);
    return {.status = result, .payload = gvcp::encode_write_index_payload(written), .is_write = true};
}

gvcp::status gvcp_device::read(std::uint32_t address, std::span<std::byte> out) const {
    auto const fault = faults_ != nullptr ? faults_->on_read(address, out.size()) : std::nullopt;
    return fault ? *fault : registers_.read(address, out);
}

/// Every application may write the privilege register, only the primary application the others.
gvcp::status gvcp_device::write(request const& one, std::uint32_t address, std::span<std::byte const> data) {
    if (address == bootstrap::control_channel_privilege && data.size() == 4) {
        return write_privilege(one, data);
    }
    if (!state_.control.may_write(one.sender)) {
        return gvcp::status::access_denied;
    }
    auto const fault = faults_ != nullptr ? faults_->on_write(address, data.size()) : std::nullopt;
    return fault ? *fault : registers_.write(address, data);
}

gvcp::status gvcp_device::write_privilege(request const& one, std::span<std::byte const> data) {
    bool const was_primary = state_.control.is_primary(one.sender);
    auto const fault = faults_ != nullptr && !was_primary
                           ? faults_->on_write(bootstrap::control_channel_privilege, data.size())
                           : std::nullopt;
    if (fault) {
        return *fault;
    }
    gvcp::status const result = state_.control.write_privilege(one.sender, load_be32(data, 0), one.now);
    if (was_primary && !state_.control.primary()) {
        state_.lose_control();
    }
    return result;
}

/// Resent packets go to the stream's destination, never to the sender of a command. Only the primary application and
/// hosts at the stream's destination may request them.
std::optional<resend_job> gvcp_device::resend(request const& one) const {
    bool const extended = (one.header.flags & gvcp::flag_extended_ids) != 0;
    auto const decoded = gvcp::decode_packetresend(extended, one.payload);
    if (!decoded || decoded->stream_channel != 0 || decoded->first_packet > decoded->last_packet) {
        return std::nullopt;
    }
    stream_channel const& channel = state_.channels[0];
    bool const allowed = state_.control.is_primary(one.sender) || one.sender.address == channel.destination;
    if (!channel.open() || !allowed) {
        return std::nullopt;
    }
    return resend_job{*decoded, extended ? gvsp::id_mode::extended : gvsp::id_mode::standard,
                      (state_.gvcp_configuration & bootstrap::extended_status_enable) != 0,
                      endpoint{channel.destination, channel.host_port}};
}

std::optional<gvcp_device::time_point> gvcp_device::control_expiry() const {
    if ((state_.gvcp_configuration & bootstrap::heartbeat_disable) != 0) {
        return std::nullopt;
    }
    return state_.control.expiry(state_.heartbeat_timeout);
}

std::optional<gvcp_device::time_point> gvcp_device::next_action() const {
    return actions_.empty() ? std::nullopt : std::optional(*actions_.begin());
}

void gvcp_device::run_actions(time_point now) {
    while (!actions_.empty() && *actions_.begin() <= now) {
        state_.fire_trigger(trigger_source::action1, *actions_.begin());
        actions_.erase(actions_.begin());
    }
}

void gvcp_device::check_heartbeat(time_point now) {
    auto const expiry = control_expiry();
    if (expiry && now >= *expiry) {
        state_.lose_control();
    }
}

}  // namespace camsim
