#include "gvcp_device.hpp"

#include <array>
#include <utility>

#include "bootstrap_registers.hpp"
#include "byte_order.hpp"

namespace camsim {

namespace {

constexpr std::uint16_t number_of(gvcp::command one) {
    return static_cast<std::uint16_t>(one);
}

constexpr bool is_broadcast_command(std::uint16_t number) {
    return number == number_of(gvcp::command::discovery) || number == number_of(gvcp::command::forceip);
}

}  // namespace

gvcp_device::gvcp_device(camera_state& state, register_map const& registers, access_faults const* faults)
    : state_(state), registers_(registers), faults_(faults) {}

/// \param datagram what arrived, whoever sent it
gvcp_outcome gvcp_device::handle(std::span<std::byte const> datagram, endpoint const& sender, time_point now,
                                 delivery how) {
    auto const header = gvcp::decode_command_header(datagram);
    if (!header || (how == delivery::broadcast && !is_broadcast_command(header->number))) {
        return {};
    }
    request const one{*header, datagram.subspan(gvcp::header_size), sender, now};
    if (!gvcp::has_consistent_length(*header, datagram) || header->request_id == 0) {
        return {answers(one, {gvcp::status::invalid_header, {}}), std::nullopt};
    }
    state_.control.heard(sender, now);
    if (header->number == number_of(gvcp::command::packetresend)) {
        return {{}, resend(one)};
    }
    return {answers(one, execute(one)), std::nullopt};
}

gvcp_device::reply gvcp_device::execute(request const& one) {
    switch (static_cast<gvcp::command>(one.header.number)) {
        case gvcp::command::discovery:
            return discover();
        case gvcp::command::forceip:
            return force_ip(one);
        case gvcp::command::readreg:
            return read_registers(one);
        case gvcp::command::writereg:
            return write_registers(one);
        case gvcp::command::readmem:
            return read_memory(one);
        case gvcp::command::writemem:
            return write_memory(one);
        default:
            return {gvcp::status::not_implemented, {}};
    }
}

/// The acknowledge, when one is asked for. A write that takes its time is announced by PENDING_ACK, if the application
/// has said that it understands it.
std::vector<gvcp_answer> gvcp_device::answers(request const& one, reply const& result) const {
    std::vector<gvcp_answer> all;
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

/// DISCOVERY_ACK carries the first bootstrap registers as they are.
gvcp_device::reply gvcp_device::discover() {
    std::vector<std::byte> payload(bootstrap::discovery_size);
    gvcp::status const result = registers_.read(bootstrap::version, payload);
    return {result, std::move(payload)};
}

/// A simulated camera's address is one of the host's and stays so. Asked for the address it has, it agrees; asked for
/// another one, or while it is controlled, it refuses.
gvcp_device::reply gvcp_device::force_ip(request const& one) const {
    auto const asked = gvcp::decode_forceip(one.payload);
    if (!asked) {
        return {gvcp::status::invalid_parameter, {}};
    }
    if (asked->mac != state_.identity.mac) {
        return {.status = gvcp::status::success, .payload = {}, .silent = true};  // another device is meant
    }
    if (state_.control.primary()) {
        return {gvcp::status::access_denied, {}};
    }
    bool const agrees = asked->address == state_.network.address || asked->address == 0;
    return {agrees ? gvcp::status::success : gvcp::status::invalid_parameter, {}};
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

/// Registers are written in order up to the first that refuses; the acknowledge says how many were written.
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
    auto const asked = gvcp::decode_readmem(one.payload);
    if (!asked || asked->count == 0 || asked->count > gvcp::maximum_memory_block) {
        return {gvcp::status::invalid_parameter, {}};
    }
    if (!state_.control.may_read(one.sender)) {
        return {gvcp::status::access_denied, {}};
    }
    std::vector<std::byte> data(asked->count);
    gvcp::status const result = read(asked->address, data);
    if (result != gvcp::status::success) {
        return {result, {}};
    }
    return {result, gvcp::encode_readmem_payload(asked->address, data)};
}

gvcp_device::reply gvcp_device::write_memory(request const& one) {
    auto const asked = gvcp::decode_writemem(one.payload);
    if (!asked) {
        return {gvcp::status::invalid_parameter, {}};
    }
    gvcp::status const result = write(one, asked->address, asked->data);
    auto const written = static_cast<std::uint16_t>(result == gvcp::status::success ? asked->data.size() : 0);
    return {.status = result, .payload = gvcp::encode_write_index_payload(written), .is_write = true};
}

gvcp::status gvcp_device::read(std::uint32_t address, std::span<std::byte> out) const {
    auto const fault = faults_ != nullptr ? faults_->on_read(address, out.size()) : std::nullopt;
    return fault ? *fault : registers_.read(address, out);
}

/// The privilege register is open to everybody, all others to the primary application.
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

/// Packets go where the stream goes, never to where a command came from. Only the primary application and the stream's
/// receiver can ask for them.
std::optional<resend_job> gvcp_device::resend(request const& one) const {
    bool const extended = (one.header.flags & gvcp::flag_extended_ids) != 0;
    auto const asked = gvcp::decode_packetresend(extended, one.payload);
    if (!asked || asked->stream_channel != 0 || asked->first_packet > asked->last_packet) {
        return std::nullopt;
    }
    stream_channel const& channel = state_.channels[0];
    bool const entitled = state_.control.is_primary(one.sender) || one.sender.address == channel.destination;
    if (!channel.open() || !entitled) {
        return std::nullopt;
    }
    return resend_job{*asked, extended ? gvsp::id_mode::extended : gvsp::id_mode::standard,
                      (state_.gvcp_configuration & bootstrap::extended_status_enable) != 0,
                      endpoint{channel.destination, channel.host_port}};
}

/// When control is lost if nothing is heard; empty when nobody has control or the heartbeat is switched off.
std::optional<gvcp_device::time_point> gvcp_device::control_expiry() const {
    if ((state_.gvcp_configuration & bootstrap::heartbeat_disable) != 0) {
        return std::nullopt;
    }
    return state_.control.expiry(state_.heartbeat_timeout);
}

void gvcp_device::check_heartbeat(time_point now) {
    auto const expiry = control_expiry();
    if (expiry && now >= *expiry) {
        state_.lose_control();
    }
}

}  // namespace camsim
