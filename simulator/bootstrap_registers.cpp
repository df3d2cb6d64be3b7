#include "bootstrap_registers.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

namespace camsim {

namespace {

constexpr std::uint32_t gige_vision_2_0 = 0x0002'0000;
constexpr std::uint32_t big_endian_transmitter_utf8 = 0x8000'0001;
constexpr std::uint32_t link_speed_mbps = 1000;
constexpr std::uint32_t single_link = 0x1;

// GVSP capability: source port registers, and standard IDs beside the extended ones.
constexpr std::uint32_t gvsp_capabilities = 0x8000'0000 | 0x4000'0000;

// GVCP capability: user-defined name, serial number, heartbeat disable, link speed, primary application's port and
// address, extended status codes (1.1), PENDING_ACK, PACKETRESEND, WRITEMEM, concatenation.
constexpr std::uint32_t gvcp_capabilities =
    0x8000'0000 | 0x4000'0000 | 0x2000'0000 | 0x1000'0000 | 0x0800'0000 | 0x0040'0000 | 0x20 | 0x4 | 0x2 | 0x1;
constexpr std::uint32_t gvcp_configurable =
    bootstrap::heartbeat_disable | bootstrap::pending_acknowledge_enable | bootstrap::extended_status_enable;

constexpr std::uint32_t low_word(std::uint64_t value) {
    return static_cast<std::uint32_t>(value & 0xFFFF'FFFFU);
}

constexpr std::uint32_t high_word(std::uint64_t value) {
    return static_cast<std::uint32_t>(value >> 32U);
}

/// A writer that stores the word and accepts everything.
template <typename Target>
number_writer stores(Target& target) {
    return [&target](std::uint64_t value) {
        target = static_cast<Target>(value);
        return gvcp::status::success;
    };
}

template <typename Source>
number_reader shows(Source const& source) {
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
        bootstrap::user_defined_name, 16, [&state] { return state.identity.user_name; },
        [&state](std::string const& name) {
            state.identity.user_name = name;
            return gvcp::status::success;
        }));
}

/// DISCOVERY_ACK carries the first 248 bytes as they are, so the reserved words among them can be read, as zeros.
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
    constexpr std::uint32_t all =
        network_settings::persistent_ip | network_settings::dhcp | network_settings::link_local;
    map.add(constant_register(bootstrap::supported_ip_configuration, all));
    map.add(number_register(bootstrap::current_ip_configuration, 4, shows(network.configuration),
                            [&network](std::uint64_t value) {
                                network.configuration = (low_word(value) & all) | network_settings::link_local;
                                return gvcp::status::success;
                            }));
    map.add(number_register(bootstrap::current_ip, 4, shows(network.address)));
    map.add(number_register(bootstrap::current_subnet_mask, 4, shows(network.subnet_mask)));
    map.add(number_register(bootstrap::current_gateway, 4, shows(network.gateway)));
    map.add(constant_register(bootstrap::network_interfaces, 1));
    map.add(number_register(bootstrap::persistent_ip, 4, shows(network.persistent_address),
                            stores(network.persistent_address)));
    map.add(number_register(bootstrap::persistent_subnet_mask, 4, shows(network.persistent_subnet_mask),
                            stores(network.persistent_subnet_mask)));
    map.add(number_register(bootstrap::persistent_gateway, 4, shows(network.persistent_gateway),
                            stores(network.persistent_gateway)));
    map.add(constant_register(bootstrap::link_speed, link_speed_mbps));
    map.add(constant_register(bootstrap::active_links, 1));
    map.add(constant_register(bootstrap::link_configuration_capability, single_link));
    map.add(constant_register(bootstrap::link_configuration, 0));
}

void add_description(register_map& map, description_location const& description) {
    std::array<char, 64> url{};
    std::snprintf(url.data(), url.size(), "Local:camsim.xml;%X;%X", description.address, description.length);
    map.add(text_register(bootstrap::first_url, 512, [text = std::string(url.data())] { return text; }));
    map.add(text_register(bootstrap::second_url, 512, [] { return std::string(); }));
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

/// The width of block and packet IDs must not change under a stream.
gvcp::status configure_gvsp(camera_state& state, std::uint32_t bits) {
    auto const ids = (bits & bootstrap::extended_ids_enable) != 0 ? gvsp::id_mode::extended : gvsp::id_mode::standard;
    if (state.acquiring && ids != state.ids) {
        return gvcp::status::busy;
    }
    state.ids = ids;
    return gvcp::status::success;
}

void add_protocols(register_map& map, camera_state& state) {
    map.add(constant_register(bootstrap::message_channels, 0));
    map.add(constant_register(bootstrap::stream_channels, static_cast<std::uint32_t>(state.channels.size())));
    map.add(constant_register(bootstrap::action_signals, 0));
    map.add(constant_register(bootstrap::gvsp_capability, gvsp_capabilities));
    map.add(constant_register(bootstrap::message_channel_capability, 0));
    map.add(constant_register(bootstrap::gvcp_capability, gvcp_capabilities));
    map.add(number_register(
        bootstrap::heartbeat_timeout, 4,
        [&state] { return static_cast<std::uint64_t>(state.heartbeat_timeout.count()); },
        [&state](std::uint64_t value) {
            std::chrono::milliseconds const asked(static_cast<std::int64_t>(value));
            state.heartbeat_timeout = std::max(asked, bootstrap::shortest_heartbeat_timeout);
            return gvcp::status::success;
        }));
    map.add(number_register(bootstrap::gvcp_configuration, 4, shows(state.gvcp_configuration),
                            [&state](std::uint64_t value) {
                                state.gvcp_configuration = low_word(value) & gvcp_configurable;
                                return gvcp::status::success;
                            }));
    map.add(
        constant_register(bootstrap::pending_timeout, static_cast<std::uint32_t>(state.options.write_time.count())));
    map.add(number_register(
        bootstrap::gvsp_configuration, 4,
        [&state] { return state.ids == gvsp::id_mode::extended ? bootstrap::extended_ids_enable : 0U; },
        [&state](std::uint64_t value) { return configure_gvsp(state, low_word(value)); }));
}

void add_control_channel(register_map& map, camera_state& state) {
    // Who writes the privilege register matters, so gvcp_device writes it; the map only knows that it can be written.
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
    if (size < stream_channel::smallest_packet || size > stream_channel::largest_packet ||
        size % stream_channel::packet_increment != 0) {
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
    map.add(constant_register(base + bootstrap::stream_capability, bootstrap::unconditional_streaming));
    map.add(number_register(
        base + bootstrap::stream_configuration, 4,
        [&channel] { return channel.unconditional_streaming ? bootstrap::unconditional_streaming : 0U; },
        [&channel](std::uint64_t value) {
            channel.unconditional_streaming = (value & bootstrap::unconditional_streaming) != 0;
            return gvcp::status::success;
        }));
}

}  // namespace

void add_bootstrap_registers(register_map& map, camera_state& state, description_location const& description,
                             std::function<void(std::uint32_t channel)> const& fire_test_packet) {
    add_identity(map, state);
    add_reserved(map);
    add_network(map, state);
    add_description(map, description);
    add_timestamp(map, state);
    add_protocols(map, state);
    add_control_channel(map, state);
    for (std::uint32_t index = 0; index < state.channels.size(); ++index) {
        add_stream_channel(map, state, index, fire_test_packet);
    }
}

}  // namespace camsim
