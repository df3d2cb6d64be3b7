// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "base/ipv4.hpp"
#include "device/camera_options.hpp"
#include "device/camera_settings.hpp"
#include "device/control_channel.hpp"
#include "device/frame_trigger.hpp"
#include "device/level_control.hpp"
#include "device/output_lines.hpp"
#include "image/frame_renderer.hpp"
#include "protocol/chunk_data.hpp"
#include "protocol/gvsp_packet.hpp"
#include "timing/device_clock.hpp"

namespace camsim {

/// The texts and the MAC address that identify the camera.
struct camera_identity {
    std::string vendor;
    std::string model;
    std::string version;
    std::string manufacturer_info;
    std::string serial;
    std::uint64_t mac = 0;
};

/// The current IP configuration, as in the bootstrap registers.
struct network_settings {
    ipv4_address address = 0;
    ipv4_address subnet_mask = 0;
    ipv4_address gateway = 0;
};

/// Registers of a stream channel.
struct stream_channel {
    static constexpr std::uint32_t min_packet_size = 576;    ///< IPv4: every host accepts packets of this size
    static constexpr std::uint32_t max_packet_size = 16128;  ///< above the jumbo frames of common network cards
    static constexpr std::uint32_t packet_size_increment = 4;

    std::uint16_t host_port = 0;  ///< 0: closed
    ipv4_address destination = 0;
    std::uint32_t packet_size = 1500;  ///< the MTU of Ethernet without jumbo frames
    bool do_not_fragment = true;
    std::uint32_t packet_delay = 0;  ///< ticks
    bool unconditional_streaming = false;
    bool extended_chunk_data = false;  ///< blocks with chunks are images with extended chunk data
    std::uint16_t source_port = 0;

    bool open() const { return host_port != 0 && destination != 0; }
};

/// The keys that select the cameras that execute an action command. Commands with device key 0 are never executed: the
/// keys have not been set.
struct action_settings {
    std::uint32_t device_key = 0;
    std::uint32_t group_key = 0;
    std::uint32_t group_mask = 0;
};

/// The state of the camera: everything that its registers show and control.
///
/// It exists from power-up until power is lost, and is shared by all threads of the camera. `mutex` guards everything
/// except `options`; functions below are called with it held. `changed` is notified when a change may concern a waiting
/// thread. Nothing is rendered or sent while the mutex is held, except for a test packet.
struct camera_state {
    using state_lock = std::unique_lock<std::mutex>;
    using time_point = std::chrono::steady_clock::time_point;

    /// \param memory what an earlier power cycle stored; null: a new camera
    camera_state(camera_options const& chosen, network_interface const& interface, device_clock::host_time power_up,
                 std::shared_ptr<nonvolatile_memory> memory = nullptr);

    camera_options const options;
    std::mutex mutex;
    std::condition_variable_any changed;

    camera_identity identity;
    network_settings network;
    control_channel control;
    std::chrono::milliseconds heartbeat_timeout{3000};  ///< the default of GigE Vision
    std::uint32_t gvcp_configuration = 0;
    gvsp::id_mode ids = gvsp::id_mode::standard;
    device_clock clock;
    std::uint64_t latched_ticks = 0;
    std::vector<stream_channel> channels;
    std::uint32_t selected_channel = 0;
    bool parameters_locked = false;  ///< TLParamsLocked
    std::shared_ptr<nonvolatile_memory> const memory;
    user_set initial;                   ///< the settings of the user set "Default"
    std::size_t selected_user_set = 0;  ///< index into user_set_names
    image_settings image;
    frame_trigger trigger;
    bool line1 = false;  ///< level of the input line
    action_settings action;
    level_settings level;
    level_control level_loop;
    lut_settings lut;
    std::shared_ptr<lut_tables const> frame_lut;  ///< copy of the LUT that the last frame with a LUT refers to
    output_lines lines;
    std::size_t selected_line = 0;
    std::size_t selected_output = 0;                           ///< UserOutputSelector
    std::function<void(line_change const&)> on_line_change{};  ///< called for every change of the lines; may be empty
    chunk_settings chunks;
    bool acquiring = false;
    /// Fault overheating: the temperature that is reported.
    std::optional<double> overheated_celsius{};
    bool stream_frozen = false;          ///< fault freeze: no packets are sent
    bool control_unresponsive = false;   ///< fault freeze: commands are ignored
    std::uint64_t power_cycle = 1;       ///< counts power-ups
    std::uint64_t acquisition_run = 0;   ///< counts AcquisitionStart
    std::uint64_t channel_openings = 0;  ///< counts openings of stream channel 0; block IDs restart at 1 with each

    camera_time now() const { return clock.at(std::chrono::steady_clock::now()); }
    std::uint64_t ticks() const { return clock.ticks_at(now()); }

    /// Waits for a time with the mutex unlocked.
    /// \return true at `when`; false as soon as `cancelled()` holds or the thread is stopped
    template <typename predicate>
    bool wait_until(state_lock& lock, std::stop_token const& stop, time_point when, predicate cancelled) {
        if (std::chrono::steady_clock::now() < when) {
            changed.wait_until(lock, stop, when, cancelled);
        }
        return !stop.stop_requested() && !cancelled();
    }

    /// The LUT entry that LUTSelector and LUTIndex select. Monochrome formats have one LUT, the first.
    std::uint16_t& lut_entry();

    /// The tone of a frame that is exposed now. Copies the LUTs if they have changed, so that later writes apply to
    /// later frames.
    tone frame_tone();

    /// Adjusts exposure and gain of the next frame where they are automatic.
    /// \param mean 12-bit mean of the last frame
    void update_levels(double mean);

    /// Changes the lines and reports the change to on_line_change.
    /// \param when time of the change; that of a late frame is the time at which it was due
    void change_lines(std::function<void(output_lines&)> change, time_point when = std::chrono::steady_clock::now());

    /// Passes a signal to the trigger, and wakes the sensor if an exposure follows.
    void fire_trigger(trigger_source from, time_point when = std::chrono::steady_clock::now());

    /// Changes the level of the input line. The edge that TriggerActivation selects fires the trigger.
    void set_line1(bool high);

    /// \return invalid_parameter if the region is not inside the sensor. Size and offset are written one after the
    /// other, so their combination is checked here.
    gvcp::status start_acquisition();

    void stop_acquisition();

    /// The settings that a user set holds.
    user_set settings() const;

    /// Replaces the settings by those of a user set.
    /// \param index into user_set_names
    /// \return busy during an acquisition, access_denied if the set has never been saved
    gvcp::status load_user_set(std::size_t index);

    /// \return access_denied for the first set
    gvcp::status save_user_set(std::size_t index);

    /// The payload type of new blocks.
    gvsp::payload_type payload_type() const;

    /// Executes a write of a channel's host port. Port 0 closes the channel; block IDs restart at 1 when it is opened.
    void open_or_close_channel(std::size_t channel, std::uint16_t host_port);

    /// Ends the control of the primary application, on its request or after the heartbeat timeout. Closes streams that
    /// are not unconditional, and resets its GVCP configuration, so that its disabled heartbeat does not remain.
    void lose_control();
};

}  // namespace camsim
