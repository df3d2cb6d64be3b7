// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "clock/frame_clock.hpp"
#include "frames/frame_format.hpp"
#include "lut/lookup_table.hpp"

namespace mediagrabber {

/// `exposure.auto` and `gain.auto`, named as GenICam's ExposureAuto and GainAuto; the numbers are those that the host
/// functions return.
enum class auto_mode : std::int32_t { unchanged = 0, off = 1, continuous = 2 };

/// What an output line of the camera follows, named as GenICam's LineSource; the numbers are those that the host
/// functions return.
enum class line_source : std::uint32_t { low = 1, exposure_active = 2 };

/// What is written of a frame beside its line in the frame index.
enum class output_format : std::uint8_t {
    tiff,     ///< one file per frame
    bigtiff,  ///< one page of a single file per frame
    hdf5,     ///< one HDF5 file in the layout of NeXus
    raw,      ///< one file that holds all frames back to back
    none,
};

enum class tiff_compression : std::uint8_t { none, lzw, deflate };

/// A range, in the unit of its key.
struct limits {
    float low = 0.0F;
    float high = 0.0F;
};

/// `[camera]`: which camera is used, and its name.
struct camera_configuration {
    std::optional<std::string> name;  ///< for people; see name_of()
    std::optional<std::string> model;
    std::optional<std::string> serial;
    std::optional<std::uint32_t> active_mask;

    /// Bit i selects the camera at list index i. With neither model nor mask configured, it is the first camera.
    std::uint32_t effective_mask() const { return active_mask.value_or(model ? 0U : 1U); }
};

/// `[image]`: region, pixel format and orientation.
struct image_configuration {
    std::optional<std::int32_t> width;
    std::optional<std::int32_t> height;
    std::optional<std::int32_t> offset_x;
    std::optional<std::int32_t> offset_y;
    format_code format = format_code::Mono8;
    format_code convert_to = format_code::none;  ///< none: frames are not converted
    std::int32_t rotation_deg = 0;               ///< 0 or 180
};

/// `[transport]`: the stream's packets.
struct transport_configuration {
    std::optional<std::uint32_t> packet_size_bytes;  ///< empty: negotiated with the camera
};

/// `[timing]`: frame rate and camera clock.
struct timing_configuration {
    std::optional<float> frame_rate_hz;
    std::int32_t clock_correction_ppb = 0;
    std::optional<double> tick_frequency_hz;  ///< empty: found from the frames
    std::optional<measured_clock> clock_reference;
};

/// `[exposure]`
struct exposure_configuration {
    auto_mode automatic = auto_mode::unchanged;  ///< exposure.auto
    std::optional<float> time_us;
    std::optional<limits> limits_us;
};

/// `[gain]`
struct gain_configuration {
    auto_mode automatic = auto_mode::unchanged;  ///< gain.auto
    std::optional<float> db;
    std::optional<limits> limits_db;
};

/// `[auto]`: what the camera's automatic exposure and gain aim at.
struct automatic_configuration {
    std::optional<float> brightness;  ///< fraction of full scale
    bool area = false;
};

/// `[tone]`: LUT and gamma of the camera.
struct tone_configuration {
    bool enable = false;
    std::optional<float> gamma;
    std::optional<std::string> lut_file;  ///< tone.lut; a path or no_lut
    std::optional<std::uint32_t> lut_bits;
    lookup_table const* lut = nullptr;  ///< read from lut_file; see interned_lut
    float contrast_limit = 4.0F;
    limits percentiles{.low = 0.0F, .high = 100.0F};

    static constexpr char no_lut[] = "none";
    /// Whether a LUT that the camera has is to be switched off.
    bool without_lut() const { return lut_file == no_lut; }
    bool has_lut_file() const { return lut_file && !without_lut(); }
};

/// One `[[line]]` table: an output of the camera.
struct io_line {
    std::uint32_t pin = 0;  ///< 5 "Out1", 6 "Out2"
    line_source source = line_source::low;
    bool inverted = false;
};

/// `[memory]`: frame buffers.
struct memory_configuration {
    std::uint32_t buffers = 16;
    std::uint32_t export_buffers = 16;
};

/// `[run]`: when the recording ends, and how often a failed run is repeated.
struct run_configuration {
    std::uint32_t frames = 0;  ///< 0: no limit
    double grace_time_s = 5.0;
    double retry_interval_s = 2.0;
    std::optional<std::uint32_t> give_up_after = 0;  ///< failed attempts in a row; empty: never
};

/// `[output]`: files and pipeline.
struct output_configuration {
    std::string directory = "recording";
    output_format format = output_format::tiff;
    tiff_compression compression = tiff_compression::none;
    std::uint64_t segment_frames = 0;  ///< 0: no limit
    double segment_s = 0.0;            ///< 0: no limit
    double keep_days = 0.0;            ///< 0: for ever
    double keep_bytes = 0.0;           ///< 0: no limit
    double min_free_bytes = 0.0;       ///< 0: none
    bool delete_pretrigger = false;
    std::optional<std::string> pipeline;

    bool has_segments() const { return segment_frames != 0 || segment_s != 0.0; }
    bool has_retention() const { return keep_days != 0.0 || keep_bytes != 0.0 || min_free_bytes != 0.0; }
};

/// `[pretrigger]`: the pre-trigger buffer.
struct pretrigger_configuration {
    double seconds = 0.0;  ///< 0: frames are saved as they arrive
    bool trigger_on_loss = false;
};

/// `[control]`: the socket that `mediagrabber set` connects to.
struct control_configuration {
    std::optional<std::string> socket;  ///< path; empty: the default path
    std::optional<std::string> group;   ///< name or number; its members may connect
};

/// `[web]`: the live page.
struct web_configuration {
    std::optional<std::string> address;        ///< "ADDRESS:PORT"; empty: no page
    std::optional<std::string> token_file;     ///< path
    std::optional<std::string> public_origin;  ///< "https://HOST[:PORT]" of a proxy in front of the page
};

/// `[ring]`: frames in shared memory.
struct ring_configuration {
    std::optional<std::string> socket;  ///< path; empty: frames are not shared with other programs
    std::optional<std::string> group;   ///< name or number; its members may connect
};

/// `[mqtt]`: messages to a broker.
struct mqtt_configuration {
    std::optional<std::string> broker;  ///< "mqtt://HOST:PORT" or "mqtts://HOST:PORT"; empty: no messages
    std::string topic = "mediagrabber/{name}";
    bool frames = false;
    double health_interval_s = 10.0;
    std::optional<std::string> username;
    std::optional<std::string> password_file;     ///< path, as the three below
    std::optional<std::string> ca_file;           ///< empty: the system's certificate authorities
    std::optional<std::string> certificate_file;  ///< of this client
    std::optional<std::string> key_file;
    std::uint32_t queue_frames = 1024;
};

// The plug-in's log levels and sinks, as its variables gMgLogLevelLib and gMgLogModeLib take them.
inline constexpr std::uint32_t log_level_info = 3;
inline constexpr std::uint32_t log_sink_stdout = 1;
inline constexpr std::uint32_t log_sink_syslog = 2;

/// `[log]`: what the plug-in logs, and where to.
struct log_configuration {
    std::uint32_t level = 2;                ///< 0 nothing to 4 debug
    std::uint32_t sinks = log_sink_stdout;  ///< bits
    std::uint32_t instance = 0;
};

/// Everything that a user can configure: one part per table of the configuration file, each with its defaults. An empty
/// optional is a value that is not configured; the camera keeps the value that it has. Units are those of the keys in
/// configuration_schema.cpp, which also describes each key. A component takes the part that it needs, not all of it.
struct configuration {
    camera_configuration camera;
    image_configuration image;
    transport_configuration transport;
    timing_configuration timing;
    exposure_configuration exposure;
    gain_configuration gain;
    automatic_configuration automatic;
    tone_configuration tone;
    std::vector<io_line> lines;
    memory_configuration memory;
    run_configuration run;
    output_configuration output;
    pretrigger_configuration pretrigger;
    control_configuration control;
    web_configuration web;
    ring_configuration ring;
    mqtt_configuration mqtt;
    log_configuration log;
    std::string file_text;  ///< of the configuration file, for recordings that hold it
};

}  // namespace mediagrabber
