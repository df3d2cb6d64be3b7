// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "base/ipv4.hpp"
#include "faults/fault.hpp"
#include "genicam/reduced_feature_set.hpp"
#include "image/scene.hpp"
#include "timing/network_delay.hpp"
#include "timing/packet_pacing.hpp"

namespace camsim {

/// The blocks with chunks that the camera sends.
enum class chunk_payload : std::uint8_t {
    standard,  ///< chunk data; images with extended chunk data once these are enabled in the stream channel's registers
    deprecated,  ///< extended chunk data, as a camera of GigE Vision 1.2; they cannot be enabled
    extended,    ///< as standard, enabled at power-up
};

/// How the feature GevTimestampValue behaves.
enum class timestamp_value : std::uint8_t {
    latched,  ///< the value that was latched last, 0 before
    running,  ///< the present value: reading latches it
};

/// The fixed properties of a camera: one field for each option of the command line.
struct camera_options {
    ipv4_address address = 0x7F00'0001;  ///< 127.0.0.1
    std::string vendor = "JAI Corporation";
    std::string model = "GO-5100M-PGE";
    std::string serial = "CS000001";
    std::string user_name;
    std::optional<std::uint64_t> mac;  ///< none: derived from the serial number
    scene_settings scene;
    /// Size and offset limit each other, and the frame rate limits the exposure time. Otherwise AcquisitionStart checks
    /// the region, and a long exposure reduces the frame rate.
    bool dependent_limits = true;
    std::uint16_t max_lut_value = 4095;
    bool lut_locked_while_acquiring = false;
    reduced_feature_set feature_set;
    bool xml_zip = false;         ///< the GenICam XML is compressed
    bool xml_second_url = false;  ///< its address is in the second URL register, the first names a file
    packet_pacing pacing;
    std::uint64_t tick_frequency = 1'000'000'000;  ///< Hz
    double clock_drift_ppm = 0.0;
    std::uint64_t first_tick = 0;
    bool ptp = false;  ///< supports IEEE 1588
    camsim::timestamp_value timestamp_value = camsim::timestamp_value::latched;
    network_delay_settings delay;
    std::uint32_t stream_channels = 1;
    camsim::chunk_payload chunk_payload = camsim::chunk_payload::standard;
    std::size_t resend_blocks = 16;
    int frame_buffers = 4;                    ///< frame periods by which sending may be late before frames are dropped
    std::chrono::milliseconds write_time{0};  ///< duration of a register write
    fault_plan faults;
    std::string control_socket;   ///< path of the socket for faults and the input line; empty: none
    std::string truth_file;       ///< empty: none
    std::string line_trace_file;  ///< empty: none
};

}  // namespace camsim
