// SPDX-License-Identifier: MIT
#include "device/bootstrap_registers.hpp"
#include "features/camera_features.hpp"

namespace camsim {

namespace {

constexpr char const* category = "TransportLayerControl";

feature parameters_locked(camera_state& state) {
    return {.name = "TLParamsLocked",
            .category = category,
            .tooltip = "1 while the application receives a stream; locks image size and format",
            .visible_to = visibility::invisible,
            .cachable = false,
            .kind = integer_kind{.get = [&state] { return std::int64_t{state.parameters_locked}; },
                                 .set =
                                     [&state](std::int64_t value) {
                                         state.parameters_locked = value == 1;
                                         return gvcp::status::success;
                                     },
                                 .maximum = std::int64_t{1}}};
}

feature payload_size(camera_state& state) {
    return {.name = "PayloadSize",
            .category = category,
            .tooltip = "Bytes of a block's payload, including chunks",
            .unit = "B",
            .visible_to = visibility::expert,
            .access = access_mode::read_only,
            .invalidated_by = {"Width", "Height", "PixelFormat", "ChunkModeActive", "ChunkEnable"},
            .kind = integer_kind{.get = [&state] {
                return static_cast<std::int64_t>(frame_bytes(state.image.area, state.image.format) +
                                                 chunk_bytes(state.chunks.sent()));
            }}};
}

/// Features that share a register must not be cached, because a write of one changes the register of the others.
bool is_entire_register(standard_register const& place) {
    return !place.bits.has_value();
}

/// An integer that is a bootstrap register or some of its bits.
feature standard_integer(std::string name, std::string tooltip, access_mode access, standard_register place,
                         limit<std::int64_t> maximum, representation display = representation::none) {
    bool const cachable = is_entire_register(place);
    return {
        .name = std::move(name),
        .category = category,
        .tooltip = std::move(tooltip),
        .visible_to = visibility::expert,
        .access = access,
        .cachable = cachable,
        .kind =
            integer_kind{
                .get = {}, .set = {}, .minimum = std::int64_t{0}, .maximum = std::move(maximum), .display = display},
        .standard = std::move(place)};
}

feature standard_boolean(std::string name, std::string tooltip, standard_register place) {
    bool const cachable = is_entire_register(place);
    return {.name = std::move(name),
            .category = category,
            .tooltip = std::move(tooltip),
            .visible_to = visibility::guru,
            .cachable = cachable,
            .kind = boolean_kind{},
            .standard = std::move(place)};
}

feature standard_command(std::string name, std::string tooltip, standard_register place, std::uint32_t value) {
    auto const access = is_entire_register(place) ? access_mode::write_only : access_mode::read_write;
    return {.name = std::move(name),
            .category = category,
            .tooltip = std::move(tooltip),
            .visible_to = visibility::guru,
            .access = access,
            .cachable = false,
            .kind = command_kind{.execute = {}, .value = value},
            .standard = std::move(place)};
}

standard_register of_stream_channel(std::uint32_t address,
                                    std::optional<std::pair<unsigned, unsigned>> bits = std::nullopt) {
    return {address, 4, bits, "GevStreamChannelSelector", bootstrap::stream_channel_stride};
}

void add_network_features(std::vector<feature>& features) {
    auto const address = [&](std::string name, std::string tooltip, access_mode access, std::uint32_t place) {
        features.push_back(standard_integer(std::move(name), std::move(tooltip), access, {place},
                                            std::int64_t{0xFFFF'FFFF}, representation::ipv4_address));
    };
    address("GevCurrentIPAddress", "IP address", access_mode::read_only, bootstrap::current_ip);
    address("GevCurrentSubnetMask", "Subnet mask", access_mode::read_only, bootstrap::current_subnet_mask);
    address("GevCurrentDefaultGateway", "Default gateway", access_mode::read_only, bootstrap::current_gateway);
    address("GevPersistentIPAddress", "Persistent IP address", access_mode::read_write, bootstrap::persistent_ip);
    address("GevPersistentSubnetMask", "Persistent subnet mask", access_mode::read_write,
            bootstrap::persistent_subnet_mask);
    address("GevPersistentDefaultGateway", "Persistent default gateway", access_mode::read_write,
            bootstrap::persistent_gateway);
    features.push_back(standard_boolean("GevCurrentIPConfigurationDHCP", "Use DHCP at power-up",
                                        {bootstrap::current_ip_configuration, 4, std::pair{30U, 30U}}));
    features.push_back(standard_boolean("GevCurrentIPConfigurationPersistentIP",
                                        "Use the persistent address at power-up",
                                        {bootstrap::current_ip_configuration, 4, std::pair{31U, 31U}}));
}

feature timestamp_feature(camera_state& state) {
    bool const running = state.options.timestamp_value == timestamp_value::running;
    return {.name = "GevTimestampValue",
            .category = category,
            .tooltip = running ? "Timestamp counter, latched by reading it" : "Timestamp counter at the last latch",
            .unit = "ticks",
            .visible_to = visibility::expert,
            .access = access_mode::read_only,
            .cachable = false,
            .kind = integer_kind{.get =
                                     [&state, running] {
                                         if (running) {
                                             state.latched_ticks = state.ticks();
                                         }
                                         return static_cast<std::int64_t>(state.latched_ticks);
                                     },
                                 .set = {},
                                 .maximum = INT64_MAX,
                                 .bytes = 8}};
}

/// SFNC names; the clock of this host's system is the only master.
void add_ptp_features(std::vector<feature>& features, camera_state& state) {
    features.push_back(standard_boolean("PtpEnable",
                                        "The timestamp counter follows the clock of the network (IEEE 1588)",
                                        {bootstrap::gvcp_configuration, 4, std::pair{12U, 12U}}));
    features.push_back({.name = "PtpStatus",
                        .category = category,
                        .tooltip = "State of the clock that follows the network's",
                        .visible_to = visibility::expert,
                        .access = access_mode::read_only,
                        .cachable = false,
                        .kind = enumeration_kind{
                            .get =
                                [&state] {
                                    return std::int64_t{state.clock.is_following() ? bootstrap::clock_slave
                                                                                   : bootstrap::clock_disabled};
                                },
                            .set = {},
                            .entries = {{"Disabled", bootstrap::clock_disabled}, {"Slave", bootstrap::clock_slave}}}});
}

void add_timestamp_features(std::vector<feature>& features, camera_state& state) {
    features.push_back(standard_integer("GevTimestampTickFrequency", "Ticks of the timestamp counter per second",
                                        access_mode::read_only, {bootstrap::tick_frequency_high, 8}, INT64_MAX));
    features.back().unit = "Hz";
    features.push_back(standard_command("GevTimestampControlLatch", "Latches the timestamp counter",
                                        {bootstrap::timestamp_control}, bootstrap::timestamp_latch));
    features.push_back(standard_command("GevTimestampControlReset", "Sets the timestamp counter to 0",
                                        {bootstrap::timestamp_control}, bootstrap::timestamp_reset));
    features.push_back(timestamp_feature(state));
    if (state.options.ptp) {
        add_ptp_features(features, state);
    }
}

void add_control_features(std::vector<feature>& features) {
    features.push_back(
        {.name = "GevCCP",
         .category = category,
         .tooltip = "Control channel privilege",
         .visible_to = visibility::guru,
         .cachable = false,
         .kind =
             enumeration_kind{
                 .get = {}, .set = {}, .entries = {{"OpenAccess", 0}, {"ExclusiveAccess", 1}, {"ControlAccess", 2}}},
         .standard = standard_register{bootstrap::control_channel_privilege}});
    features.push_back(standard_integer("GevHeartbeatTimeout", "Time without commands after which control is lost",
                                        access_mode::read_write, {bootstrap::heartbeat_timeout},
                                        std::int64_t{0xFFFF'FFFF}));
    features.back().unit = "ms";
    std::get<integer_kind>(features.back().kind).minimum = std::int64_t{bootstrap::min_heartbeat_timeout.count()};
    features.push_back({.name = "GevGVSPExtendedIDMode",
                        .category = category,
                        .tooltip = "64-bit block IDs and 32-bit packet IDs",
                        .visible_to = visibility::expert,
                        .locked_while_acquiring = true,
                        .cachable = false,
                        .kind = enumeration_kind{.get = {}, .set = {}, .entries = {{"Off", 0}, {"On", 1}}},
                        .standard = standard_register{bootstrap::gvsp_configuration, 4, std::pair{1U, 1U}}});
}

feature stream_channel_selector(camera_state& state) {
    return {.name = "GevStreamChannelSelector",
            .category = category,
            .tooltip = "Selects the stream channel that the following features refer to",
            .visible_to = visibility::expert,
            .selects = {"GevSCPHostPort", "GevSCPSPacketSize", "GevSCPSFireTestPacket", "GevSCPSDoNotFragment",
                        "GevSCPD", "GevSCDA", "GevSCSP", "GevSCCFGUnconditionalStreaming", "GevSCCFGExtendedChunkData"},
            .kind = integer_kind{.get = [&state] { return std::int64_t{state.selected_channel}; },
                                 .set =
                                     [&state](std::int64_t value) {
                                         state.selected_channel = static_cast<std::uint32_t>(value);
                                         return gvcp::status::success;
                                     },
                                 .maximum = static_cast<std::int64_t>(state.channels.size()) - 1}};
}

feature packet_size() {
    feature one =
        standard_integer("GevSCPSPacketSize", "Bytes of a stream packet with IP, UDP and GVSP headers",
                         access_mode::read_write, of_stream_channel(bootstrap::stream_packet_size, std::pair{16U, 31U}),
                         std::int64_t{stream_channel::max_packet_size});
    auto& kind = std::get<integer_kind>(one.kind);
    kind.minimum = std::int64_t{stream_channel::min_packet_size};
    kind.increment = stream_channel::packet_size_increment;
    one.unit = "B";
    one.locked_while_acquiring = true;
    return one;
}

void add_stream_channel_features(std::vector<feature>& features, camera_state& state) {
    features.push_back(standard_integer("GevStreamChannelCount", "Number of stream channels", access_mode::read_only,
                                        {bootstrap::stream_channels}, std::int64_t{0xFFFF'FFFF}));
    features.push_back(stream_channel_selector(state));
    features.push_back(standard_integer(
        "GevSCPHostPort", "Destination port of the stream; 0 closes the channel", access_mode::read_write,
        of_stream_channel(bootstrap::stream_host_port, std::pair{16U, 31U}), std::int64_t{65535}));
    features.push_back(packet_size());
    features.push_back(standard_command("GevSCPSFireTestPacket", "Sends a test packet of the packet size",
                                        of_stream_channel(bootstrap::stream_packet_size, std::pair{0U, 0U}), 1));
    features.push_back(standard_boolean("GevSCPSDoNotFragment", "Do-not-fragment bit of the stream's packets",
                                        of_stream_channel(bootstrap::stream_packet_size, std::pair{1U, 1U})));
    features.push_back(standard_integer("GevSCPD", "Delay between packets", access_mode::read_write,
                                        of_stream_channel(bootstrap::stream_packet_delay), std::int64_t{0xFFFF'FFFF}));
    features.back().unit = "ticks";
    features.push_back(standard_integer("GevSCDA", "Destination address of the stream", access_mode::read_write,
                                        of_stream_channel(bootstrap::stream_destination), std::int64_t{0xFFFF'FFFF},
                                        representation::ipv4_address));
    features.push_back(standard_integer("GevSCSP", "Source port of the stream", access_mode::read_only,
                                        of_stream_channel(bootstrap::stream_source_port), std::int64_t{65535}));
    features.push_back(standard_boolean("GevSCCFGUnconditionalStreaming", "Continue streaming when control is lost",
                                        of_stream_channel(bootstrap::stream_configuration, std::pair{30U, 30U})));
    features.push_back(standard_boolean("GevSCCFGExtendedChunkData", "Send chunks as extended chunk data of an image",
                                        of_stream_channel(bootstrap::stream_configuration, std::pair{31U, 31U})));
    features.back().locked_while_acquiring = true;
    if (state.options.chunk_payload == chunk_payload::deprecated) {
        features.back().access = access_mode::read_only;
    }
}

void add_action_features(std::vector<feature>& features) {
    auto const key = [&](char const* name, char const* tooltip, std::uint32_t address) {
        features.push_back(
            standard_integer(name, tooltip, access_mode::read_write, {address}, std::int64_t{0xFFFF'FFFF}));
        features.back().category = "ActionControl";
    };
    key("ActionDeviceKey", "Device key of the action commands that the camera executes; 0: none",
        bootstrap::action_device_key);
    key("ActionGroupKey", "Group key of the action commands that the camera executes", bootstrap::action_group_key);
    key("ActionGroupMask", "An action command is executed if its group mask has a bit in common with this one",
        bootstrap::action_group_mask);
}

}  // namespace

std::vector<feature> transport_layer_features(camera_state& state) {
    std::vector<feature> features;
    features.push_back(parameters_locked(state));
    features.push_back(payload_size(state));
    add_network_features(features);
    add_timestamp_features(features, state);
    add_control_features(features);
    add_action_features(features);
    add_stream_channel_features(features, state);
    return features;
}

}  // namespace camsim
