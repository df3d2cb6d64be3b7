#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "fault.hpp"
#include "feature_refusals.hpp"
#include "ipv4.hpp"
#include "network_delay.hpp"
#include "packet_pacing.hpp"
#include "scene.hpp"

namespace camsim {

/// What a camera is told when it is made; the command line's options, one field each.
struct camera_options {
    ipv4_address address = 0x7F00'0001;  ///< 127.0.0.1
    std::string vendor = "JAI Corporation";
    std::string model = "GO-5100M-PGE";
    std::string serial = "CS000001";
    std::string user_name;
    std::optional<std::uint64_t> mac;  ///< none: made from the serial number
    scene_settings scene;
    bool dependent_roi_limits = false;
    bool lut_locked_while_acquiring = false;
    feature_refusals refusals;
    packet_pacing pacing;
    std::uint64_t tick_frequency = 1'000'000'000;  ///< Hz
    double clock_drift_ppm = 0.0;
    std::uint64_t first_tick = 0;
    network_delay_settings delay;
    std::uint32_t stream_channels = 1;
    std::size_t resend_blocks = 16;
    std::chrono::milliseconds write_time{0};  ///< how long a register write takes
    fault_plan faults;
    std::string control_socket;   ///< by which faults are started and ended; empty: none
    std::string truth_file;       ///< empty: none
    std::string line_trace_file;  ///< empty: none
};

}  // namespace camsim
