#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

#include "camera_options.hpp"
#include "chunk_data.hpp"
#include "control_channel.hpp"
#include "device_clock.hpp"
#include "frame_renderer.hpp"
#include "gvsp_packet.hpp"
#include "ipv4.hpp"
#include "level_control.hpp"
#include "output_lines.hpp"

namespace camsim {

/// What the camera says about itself.
struct camera_identity {
    std::string vendor;
    std::string model;
    std::string version;
    std::string manufacturer_info;
    std::string serial;
    std::string user_name;
    std::uint64_t mac = 0;
};

struct network_settings {
    // Bits of the IP configuration registers; link-local addressing cannot be switched off.
    static constexpr std::uint32_t persistent_ip = 0x1;
    static constexpr std::uint32_t dhcp = 0x2;
    static constexpr std::uint32_t link_local = 0x4;

    ipv4_address address = 0;
    ipv4_address subnet_mask = 0;
    ipv4_address gateway = 0;
    std::uint32_t configuration = dhcp | link_local;
    ipv4_address persistent_address = 0;
    ipv4_address persistent_subnet_mask = 0;
    ipv4_address persistent_gateway = 0;
};

struct stream_channel {
    static constexpr std::uint32_t smallest_packet = 576;  ///< what every GigE Vision link carries
    static constexpr std::uint32_t largest_packet = 16128;
    static constexpr std::uint32_t packet_increment = 4;

    std::uint16_t host_port = 0;  ///< 0: closed
    ipv4_address destination = 0;
    std::uint32_t packet_size = 1500;
    bool do_not_fragment = true;
    std::uint32_t packet_delay = 0;  ///< ticks
    bool unconditional_streaming = false;
    std::uint16_t source_port = 0;

    bool open() const { return host_port != 0 && destination != 0; }
};

enum class acquisition_mode : std::uint8_t { continuous = 0, single_frame = 1, multi_frame = 2 };

enum class gain_kind : std::uint8_t { analog_all = 0, digital_all = 1 };

/// What the application has set of the image.
struct image_settings {
    region area;
    pixel_format format = pixel_format::mono8;
    double frame_rate = 20.0;  ///< Hz
    double exposure_us = 1000.0;
    std::array<double, 2> gains{1.0, 1.0};  ///< linear factors, by gain_kind
    gain_kind selected_gain = gain_kind::analog_all;
    acquisition_mode mode = acquisition_mode::continuous;
    std::uint32_t frame_count = 1;  ///< of a multi-frame acquisition

    double total_gain() const { return gains[0] * gains[1]; }
};

enum class lut_mode : std::uint8_t { off = 0, table = 1, gamma = 2 };

/// What the application has set of the picture's tone.
struct lut_settings {
    lut_mode mode = lut_mode::off;
    lut_channel selected = lut_channel::red;
    std::size_t index = 0;  ///< entry of the tables that is looked at
    std::array<lut_table, lut_channels> tables{straight_lut(), straight_lut(), straight_lut()};
    std::size_t gamma = gammas.size() - 1;     ///< index into `gammas`
    std::shared_ptr<lut_tables const> sent{};  ///< tables of the last frame that had any
};

/// What the application has set of the chunks.
struct chunk_settings {
    bool active = false;  ///< ChunkModeActive
    chunk_set enabled;
    chunk selected = chunk::gain_all;

    /// The chunks that a block carries now.
    chunk_set sent() const { return active ? enabled : chunk_set{}; }
};

/// The camera behind its registers. The control thread writes it, the acquisition thread reads it and waits for
/// `changed`; who touches anything but the options holds the mutex.
struct camera_state {
    using state_lock = std::unique_lock<std::mutex>;
    using time_point = std::chrono::steady_clock::time_point;

    camera_state(camera_options const& chosen, network_interface const& interface, device_clock::host_time power_up);

    camera_options const options;
    std::mutex mutex;
    std::condition_variable_any changed;

    camera_identity identity;
    network_settings network;
    control_channel control;
    std::chrono::milliseconds heartbeat_timeout{3000};
    std::uint32_t gvcp_configuration = 0;
    gvsp::id_mode ids = gvsp::id_mode::standard;
    device_clock clock;
    std::uint64_t latched_ticks = 0;
    std::vector<stream_channel> channels;
    std::uint32_t selected_channel = 0;
    bool parameters_locked = false;  ///< TLParamsLocked
    image_settings image;
    level_settings level;
    level_control control_of_level;
    lut_settings lut;
    output_lines lines;
    std::size_t selected_line = 0;
    std::size_t selected_output = 0;                           ///< UserOutputSelector
    std::function<void(line_change const&)> on_line_change{};  ///< hears of every change of the lines
    chunk_settings chunks;
    bool acquiring = false;
    bool frozen = false;                 ///< nothing leaves of the stream
    bool deaf = false;                   ///< nothing is heard on the control channel
    std::uint64_t boot = 1;              ///< counts the times that the camera got power
    std::uint64_t acquisition_run = 0;   ///< counts AcquisitionStart
    std::uint64_t channel_openings = 0;  ///< counts openings of stream channel 0; a new one counts its blocks from 1

    camera_time now() const { return clock.at(std::chrono::steady_clock::now()); }
    std::uint64_t ticks() const { return clock.ticks_at(now()); }

    /// Waits for a time of the host without keeping others from the state.
    /// \return true at `when`; false as soon as `given_up()` or the thread is to end
    template <typename GivenUp>
    bool wait_until(state_lock& lock, std::stop_token const& stop, time_point when, GivenUp given_up) {
        if (std::chrono::steady_clock::now() < when) {
            changed.wait_until(lock, stop, when, given_up);
        }
        return !stop.stop_requested() && !given_up();
    }

    std::uint16_t& lut_entry();
    tone frame_tone();
    void follow_brightness(double mean);
    void change_lines(std::function<void(output_lines&)> change, time_point when = std::chrono::steady_clock::now());
    gvcp::status start_acquisition();
    void stop_acquisition();
    void open_or_close_channel(std::size_t channel, std::uint16_t host_port);
    void lose_control();
};

}  // namespace camsim
