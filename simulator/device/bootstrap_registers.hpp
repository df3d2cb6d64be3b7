// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "device/camera_state.hpp"
#include "genicam/register_map.hpp"

namespace camsim {

/// Addresses and bits of the bootstrap registers (GigE Vision 2.0, bootstrap registers).
namespace bootstrap {

inline constexpr std::uint32_t version = 0x0000;
inline constexpr std::uint32_t device_mode = 0x0004;
inline constexpr std::uint32_t mac_high = 0x0008;
inline constexpr std::uint32_t mac_low = 0x000C;
inline constexpr std::uint32_t supported_ip_configuration = 0x0010;
inline constexpr std::uint32_t current_ip_configuration = 0x0014;
inline constexpr std::uint32_t current_ip = 0x0024;
inline constexpr std::uint32_t current_subnet_mask = 0x0034;
inline constexpr std::uint32_t current_gateway = 0x0044;
inline constexpr std::uint32_t manufacturer_name = 0x0048;
inline constexpr std::uint32_t model_name = 0x0068;
inline constexpr std::uint32_t device_version = 0x0088;
inline constexpr std::uint32_t manufacturer_info = 0x00A8;
inline constexpr std::uint32_t serial_number = 0x00D8;
inline constexpr std::uint32_t user_defined_name = 0x00E8;
inline constexpr std::uint32_t discovery_size =
    0x00F8;  ///< bytes of the payload of DISCOVERY_ACK: the registers below this address
inline constexpr std::uint32_t first_url = 0x0200;
inline constexpr std::uint32_t second_url = 0x0400;
inline constexpr std::uint32_t network_interfaces = 0x0600;
inline constexpr std::uint32_t persistent_ip = 0x064C;
inline constexpr std::uint32_t persistent_subnet_mask = 0x065C;
inline constexpr std::uint32_t persistent_gateway = 0x066C;
inline constexpr std::uint32_t link_speed = 0x0670;
inline constexpr std::uint32_t message_channels = 0x0900;
inline constexpr std::uint32_t stream_channels = 0x0904;
inline constexpr std::uint32_t action_signals = 0x0908;
inline constexpr std::uint32_t action_device_key = 0x090C;
inline constexpr std::uint32_t active_links = 0x0910;
inline constexpr std::uint32_t gvsp_capability = 0x092C;
inline constexpr std::uint32_t message_channel_capability = 0x0930;
inline constexpr std::uint32_t gvcp_capability = 0x0934;
inline constexpr std::uint32_t heartbeat_timeout = 0x0938;
inline constexpr std::uint32_t tick_frequency_high = 0x093C;
inline constexpr std::uint32_t tick_frequency_low = 0x0940;
inline constexpr std::uint32_t timestamp_control = 0x0944;
inline constexpr std::uint32_t timestamp_value_high = 0x0948;
inline constexpr std::uint32_t timestamp_value_low = 0x094C;
inline constexpr std::uint32_t gvcp_configuration = 0x0954;
inline constexpr std::uint32_t pending_timeout = 0x0958;
inline constexpr std::uint32_t gvsp_configuration = 0x0960;
inline constexpr std::uint32_t link_configuration_capability = 0x0964;
inline constexpr std::uint32_t link_configuration = 0x0968;
inline constexpr std::uint32_t ieee_1588_status = 0x096C;
inline constexpr std::uint32_t control_channel_privilege = 0x0A00;
inline constexpr std::uint32_t primary_application_port = 0x0A04;
inline constexpr std::uint32_t primary_application_ip = 0x0A14;
/// The following are those of stream channel 0; add n * stream_channel_stride for channel n.
inline constexpr std::uint32_t stream_channel_stride = 0x40;
inline constexpr std::uint32_t stream_host_port = 0x0D00;
inline constexpr std::uint32_t stream_packet_size = 0x0D04;
inline constexpr std::uint32_t stream_packet_delay = 0x0D08;
inline constexpr std::uint32_t stream_destination = 0x0D18;
inline constexpr std::uint32_t stream_source_port = 0x0D1C;
inline constexpr std::uint32_t stream_capability = 0x0D20;
inline constexpr std::uint32_t stream_configuration = 0x0D24;

/// Of action signal 0.
inline constexpr std::uint32_t action_group_key = 0x9800;
inline constexpr std::uint32_t action_group_mask = 0x9804;

// Bits.
inline constexpr std::uint32_t timestamp_reset = 0x1;
inline constexpr std::uint32_t timestamp_latch = 0x2;
inline constexpr std::uint32_t heartbeat_disable = 0x1;
inline constexpr std::uint32_t pending_acknowledge_enable = 0x2;
inline constexpr std::uint32_t extended_status_enable = 0x4;
inline constexpr std::uint32_t ieee_1588_enable = 0x0008'0000;
inline constexpr std::uint32_t clock_disabled = 2;  ///< IEEE 1588 status
inline constexpr std::uint32_t clock_slave = 8;
inline constexpr std::uint32_t extended_ids_enable = 0x4000'0000;
inline constexpr std::uint32_t fire_test_packet = 0x8000'0000;
inline constexpr std::uint32_t do_not_fragment = 0x4000'0000;
inline constexpr std::uint32_t unconditional_streaming = 0x2;
inline constexpr std::uint32_t extended_chunk_data = 0x1;

/// Smaller values are raised to this one: with a shorter timeout, scheduling delays of a busy host would end control.
inline constexpr std::chrono::milliseconds min_heartbeat_timeout{500};

}  // namespace bootstrap

/// Position of the GenICam XML in the register space.
struct xml_location {
    std::uint32_t address;
    std::uint32_t length;  ///< bytes, without padding
    bool zip = false;      ///< it is a ZIP archive
};

/// Adds the bootstrap registers. Writes of the control channel privilege depend on their sender, so gvcp_device
/// executes them. \param fire_test_packet sends the test packet of a stream channel; called with the state's mutex held
void add_bootstrap_registers(register_map& map, camera_state& state, xml_location const& xml,
                             std::function<void(std::uint32_t channel)> const& fire_test_packet);

}  // namespace camsim
