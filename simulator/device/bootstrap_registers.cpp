// SPDX-License-Identifier: MIT
#include "device/bootstrap_registers.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include "timing/utc_offset.hpp"

namespace camsim {

namespace {

constexpr std::uint32_t gige_vision_2_0 = 0x0002'0000;
constexpr std::uint32_t big_endian_transmitter_utf8 = 0x8000'0001;
constexpr std::uint32_t link_speed_mbps = 1000;
constexpr std::uint32_t single_link = 0x1;

// GVSP capability: source port registers, and standard IDs beside the extended ones.
constexpr std::uint32_t gvsp_capabilities = 0x8000'0000 | 0x4000'0000;

// GVCP capability: user-defined name, serial number, heartbeat disable, link speed, primary application's port and
// address, extended status codes (1.1), scheduled ACTION, ACTION, PENDING_ACK, PACKETRESEND, WRITEMEM, concatenation.
constexpr std::uint32_t gvcp_capabilities = 0x8000'0000 | 0x4000'0000 | 0x2000'0000 | 0x1000'0000 | 0x0800'0000 |
                                            0x0040'0000 | 0x0002'0000 | 0x40 | 0x20 | 0x4 | 0x2 | 0x1;
constexpr std::uint32_t ieee_1588_capability = 0x0008'0000;
constexpr std::uint32_t gvcp_configurable =
    bootstrap::heartbeat_disable | bootstrap::pending_acknowledge_enable | bootstrap::extended_status_enable;

constexpr std::uint32_t low_word(std::uint64_t value) {
    return static_cast<std::uint32_t>(value & 0xFFFF'FFFFU);
}

constexpr std::uint32_t high_word(std::uint64_t value) {
    return static_cast<std::uint32_t>(value >> 32U);
}

/// A writer that accepts every value and stores it.
template <typename target_type>
number_writer stores(target_type& target) {
    return [&target](std::uint64_t value) {
        target = static_cast<target_type>(value);
        return gvcp::status::success;
    };
}

template <typename source_type>
number_reader shows(source_type const& source) {
    return [&source] { return static_cast<std::uint64_t>(source); };
}

void add_identity(register_map& map, camera_state& state) {
    auto const text = [&](std::uint32_t address, std::uint32_t length, std::string const& source) {
        map.add(text_register(address, length, [&source] { return source; }));
    };
    map.add(constant_register(bootstrap::version, gige_vision_2_0));
    map.add(constant_register(bootstrap::device_mode, big_endian_transmitter_utf8));
    map.add(number_register(bootstrap::mac_high, 4, [&state] { return high_word(state.identity.mac); }));
    map.add(number_register(bootstrap::mac_low, 4, [&state] { return low_word(state.identity.mac); }));
    text(bootstrap::manufacturer_name, 32, state.identity.vendor);
    text(bootstrap::model_name, 32, state.identity.model);
    text(bootstrap::device_version, 32, state.identity.version);
    text(bootstrap::manufacturer_info, 48, state.identity.manufacturer_info);
    text(bootstrap::serial_number, 16, state.identity.serial);
    map.add(text_register(
        bootstrap::user_defined_name, 16, [&state] { return state.memory->user_name; },
        [&state](std::string const& name) {
            state.memory->user_name = name;
            return gvcp::status::success;
        }));
}

/// The first 248 bytes are the payload of DISCOVERY_ACK, so the reserved words among them must be readable.
void add_reserved(register_map& map) {
    for (std::uint32_t const before :
         {bootstrap::current_ip, bootstrap::current_subnet_mask, bootstrap::current_gateway}) {
        for (std::uint32_t address = before - 12; address < before; address += 4) {
            map.add(constant_register(address, 0));
        }
    }
}

void add_network(register_map& map, camera_state& state) {
    network_settings& network = state.network;
    constexpr std::uint32_t all = ip_method::persistent | ip_method::dhcp | ip_method::link_local;
    map.add(constant_register(bootstrap::supported_ip_configuration, all));
    map.add(number_register(bootstrap::current_ip_configuration, 4, shows(state.memory->ip_methods),
                            [&state](std::uint64_t value) {
                                state.memory->ip_methods = (low_word(value) & all) | ip_method::link_local;
                                return gvcp::status::success;
                            }));
    map.add(number_register(bootstrap::current_ip, 4, shows(network.address)));
    map.add(number_register(bootstrap::current_subnet_mask, 4, shows(network.subnet_mask)));
    map.add(number_register(bootstrap::current_gateway, 4, shows(network.gateway)));
    map.add(constant_register(bootstrap::network_interfaces, 1));
    map.add(number_register(bootstrap::persistent_ip, 4, shows(state.memory->persistent_address),
                            stores(state.memory->persistent_address)));
    map.add(number_register(bootstrap::persistent_subnet_mask, 4, shows(state.memory->persistent_subnet_mask),
                            stores(state.memory->persistent_subnet_mask)));
    map.add(number_register(bootstrap::persistent_gateway, 4, shows(state.memory->persistent_gateway),
                            stores(state.memory->persistent_gateway)));
    map.add(constant_register(bootstrap::link_speed, link_speed_mbps));
    map.add(constant_register(bootstrap::active_links, 1));
    map.add(constant_register(bootstrap::link_configuration_capability, single_link));
    map.add(constant_register(bootstrap::link_configuration, 0));
}

void add_xml_url(register_map& map, xml_location const& xml, bool second) {
    std::array<char, 64> local{};
    std::snprintf(local.data(), local.size(), "Local:camsim.%s;%X;%X", xml.zip ? "zip" : "xml", xml.address,
                  xml.length);
    std::string const first_url = second ? "File:camsim.xml" : local.data();
    std::string const second_url = second ? local.data() : "";
    map.add(text_register(bootstrap::first_url, 512, [first_url] { return first_url; }));
    map.add(text_register(bootstrap::second_url, 512, [second_url] { return second_url; }));
}

gvcp::status control_timestamp(camera_state& state, std::uint32_t bits) {
    camera_time const now = state.now();
    if ((bits & bootstrap::timestamp_latch) != 0) {
        state.latched_ticks = state.clock.ticks_at(now);
    }
    if ((bits & bootstrap::timestamp_reset) != 0) {
        state.clock.reset_counter(now);
    }
    return gvcp::status::success;
}

void add_timestamp(register_map& map, camera_state& state) {
    map.add(constant_register(bootstrap::tick_frequency_high, high_word(state.clock.tick_frequency())));
    map.add(constant_register(bootstrap::tick_frequency_low, low_word(state.clock.tick_frequency())));
    map.add(number_register(
        bootstrap::timestamp_control, 4, [] { return 0; },
        [&state](std::uint64_t value) { return control_timestamp(state, low_word(value)); }));
    map.add(number_register(bootstrap::timestamp_value_high, 4, [&state] { return high_word(state.latched_ticks); }));
    map.add(number_register(bootstrap::timestamp_value_low, 4, [&state] { return low_word(state.latched_ticks); }));
}

/// The width of block and packet IDs must not change during an acquisition.
gvcp::status configure_gvsp(camera_state& state, std::uint32_t bits) {
    auto const ids = (bits & bootstrap::extended_ids_enable) != 0 ? gvsp::id_mode::extended : gvsp::id_mode::standard;
    if (state.acquiring && ids != state.ids) {
        return gvcp::status::busy;
    }
    state.ids = ids;
    return gvcp::status::success;
}

gvcp::status configure_gvcp(camera_state& state, std::uint32_t bits) {
    std::uint32_t const supported = gvcp_configurable | (state.options.ptp ? bootstrap::ieee_1588_enable : 0);
    state.gvcp_configuration = bits & supported;
    bool const follows = (state.gvcp_configuration & bootstrap::ieee_1588_enable) != 0;
    if (follows != state.clock.is_following()) {
        state.clock.follow(follows ? utc_offset : nullptr, state.now());
    }
    return gvcp::status::success;
}

void add_protocols(register_map& map, camera_state& state) {
    map.add(constant_register(bootstrap::message_channels, 0));
    map.add(constant_register(bootstrap::stream_channels, static_cast<std::uint32_t>(state.channels.size())));
    map.add(constant_register(bootstrap::action_signals, 1));
    map.add(number_register(bootstrap::action_device_key, 4, shows(state.action.device_key),
                            stores(state.action.device_key)));
    map.add(
        number_register(bootstrap::action_group_key, 4, shows(state.action.group_key), stores(state.action.group_key)));
    map.add(number_register(bootstrap::action_group_mask, 4, shows(state.action.group_mask),
                            stores(state.action.group_mask)));
    map.add(constant_register(bootstrap::gvsp_capability, gvsp_capabilities));
    map.add(constant_register(bootstrap::message_channel_capability, 0));
    map.add(constant_register(bootstrap::gvcp_capability,
                              gvcp_capabilities | (state.options.ptp ? ieee_1588_capability : 0)));
    map.add(number_register(bootstrap::ieee_1588_status, 4, [&state] {
        return state.clock.is_following() ? bootstrap::clock_slave : bootstrap::clock_disabled;
    }));
    map.add(number_register(
        bootstrap::heartbeat_timeout, 4,
        [&state] { return static_cast<std::uint64_t>(state.heartbeat_timeout.count()); },
        [&state](std::uint64_t value) {
            std::chrono::milliseconds const requested(static_cast<std::int64_t>(value));
            state.heartbeat_timeout = std::max(requested, bootstrap::min_heartbeat_timeout);
            return gvcp::status::success;
        }));
    map.add(number_register(bootstrap::gvcp_configuration, 4, shows(state.gvcp_configuration),
                            [&state](std::uint64_t value) { return configure_gvcp(state, low_word(value)); }));
    map.add(
        constant_register(bootstrap::pending_timeout, static_cast<std::uint32_t>(state.options.write_time.count())));
    map.add(number_register(
        bootstrap::gvsp_configuration, 4,
        [&state] { return state.ids == gvsp::id_mode::extended ? bootstrap::extended_ids_enable : 0U; },
        [&state](std::uint64_t value) { return configure_gvsp(state, low_word(value)); }));
}

void add_control_channel(register_map& map, camera_state& state) {
    // gvcp_device executes writes, which depend on their sender. A writer must exist, so that the register is writable.
    map.add(number_register(
        bootstrap::control_channel_privilege, 4, [&state] { return state.control.privilege(); },
        [](std::uint64_t) { return gvcp::status::access_denied; }));
    map.add(number_register(bootstrap::primary_application_port, 4,
                            [&state] { return state.control.primary().value_or(endpoint{}).port; }));
    map.add(number_register(bootstrap::primary_application_ip, 4,
                            [&state] { return state.control.primary().value_or(endpoint{}).address; }));
}

gvcp::status write_packet_size(stream_channel& channel, std::uint32_t value) {
    std::uint32_t const size = value & 0xFFFFU;
    if (size < stream_channel::min_packet_size || size > stream_channel::max_packet_size ||
        size % stream_channel::packet_size_increment != 0) {
        return gvcp::status::invalid_parameter;
    }
    channel.packet_size = size;
    channel.do_not_fragment = (value & bootstrap::do_not_fragment) != 0;
    return gvcp::status::success;
}

void add_stream_channel(register_map& map, camera_state& state, std::uint32_t index,
                        std::function<void(std::uint32_t)> const& fire_test_packet) {
    stream_channel& channel = state.channels[index];
    std::uint32_t const base = index * bootstrap::stream_channel_stride;
    map.add(number_register(base + bootstrap::stream_host_port, 4, shows(channel.host_port),
                            [&state, index](std::uint64_t value) {
                                state.open_or_close_channel(index, static_cast<std::uint16_t>(value & 0xFFFFU));
                                return gvcp::status::success;
                            }));
    map.add(number_register(
        base + bootstrap::stream_packet_size, 4,
        [&channel] { return channel.packet_size | (channel.do_not_fragment ? bootstrap::do_not_fragment : 0U); },
        [&channel, index, fire_test_packet](std::uint64_t value) {
            gvcp::status const result = write_packet_size(channel, low_word(value));
            if (result == gvcp::status::success && (value & bootstrap::fire_test_packet) != 0) {
                fire_test_packet(index);
            }
            return result;
        }));
    map.add(number_register(base + bootstrap::stream_packet_delay, 4, shows(channel.packet_delay),
                            stores(channel.packet_delay)));
    map.add(number_register(base + bootstrap::stream_destination, 4, shows(channel.destination),
                            [&state, &channel](std::uint64_t value) {
                                channel.destination = low_word(value);
                                state.changed.notify_all();
                                return gvcp::status::success;
                            }));
    map.add(number_register(base + bootstrap::stream_source_port, 4, shows(channel.source_port)));
    bool const can_extend_chunks = state.options.chunk_payload != chunk_payload::deprecated;
    map.add(constant_register(
        base + bootstrap::stream_capability,
        bootstrap::unconditional_streaming | (can_extend_chunks ? bootstrap::extended_chunk_data : 0U)));
    map.add(number_register(
        base + bootstrap::stream_configuration, 4,
        [&channel] {
            return (channel.unconditional_streaming ? bootstrap::unconditional_streaming : 0U) |
                   (channel.extended_chunk_data ? bootstrap::extended_chunk_data : 0U);
        },
        [&state, &channel, can_extend_chunks](std::uint64_t value) {
            bool const extend = can_extend_chunks && (value & bootstrap::extended_chunk_data) != 0;
            if (state.acquiring && extend != channel.extended_chunk_data) {
                return gvcp::status::busy;
            }
            channel.extended_chunk_data = extend;
            channel.unconditional_streaming = (value & bootstrap::unconditional_streaming) != 0;
            return gvcp::status::success;
        }));
}

}  // namespace

void add_bootstrap_registers(register_map& map, camera_state& state, xml_location const& xml,
                             std::function<void(std::uint32_t channel)> const& fire_test_packet) {
    add_identity(map, state);
    add_reserved(map);
    add_network(map, state);
    add_xml_url(map, xml, state.options.xml_second_url);
    add_timestamp(map, state);
    add_protocols(map, state);
    add_control_channel(map, state);
    for (std::uint32_t index = 0; index < state.channels.size(); ++index) {
        add_stream_channel(map, state, index, fire_test_packet);
    }
}

}  // namespace camsim
