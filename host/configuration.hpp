#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lookup_table.hpp"

namespace mediagrabber {

/// Who sets gain or exposure; the numbers are those of the host functions.
enum class control_mode : std::int32_t { untouched = 0, manual = 1, automatic = 2 };

enum class line_source : std::uint32_t { low = 1, exposure_active = 2 };

/// What is written of a frame beside its line in the journal.
enum class output_format : std::uint8_t {
    tiff,     ///< a file a frame
    bigtiff,  ///< a page of one file a frame
    raw,      ///< one file with frame behind frame
    none,
};

enum class tiff_compression : std::uint8_t { none, lzw, deflate };

struct limits {
    float low = 0.0F;
    float high = 0.0F;
};

/// One I/O line of the camera.
struct io_line {
    std::uint32_t pin = 0;  ///< 5 "Out1", 6 "Out2"
    line_source source = line_source::low;
    bool inverted = false;
};

/// Everything that an operator can configure, as the values that are in force. An empty optional is a value that is
/// not configured: the camera keeps what it has. Units are those of the keys in configuration_schema.cpp, which also
/// describes each of them.
struct configuration {
    // [camera]
    std::optional<std::string> model;
    std::optional<std::string> serial;
    std::optional<std::uint32_t> active_mask;

    // [image]
    std::optional<std::int32_t> width;
    std::optional<std::int32_t> height;
    std::optional<std::int32_t> offset_x;
    std::optional<std::int32_t> offset_y;
    std::uint8_t format = 1;      ///< code of a pixel_format
    std::uint8_t convert_to = 0;  ///< the same; 0 none
    std::int32_t rotate = 0;      ///< degrees: 0 or 180

    // [transport]
    std::optional<std::uint32_t> packet_size;  ///< bytes; empty: negotiated with the camera

    // [timing]
    std::optional<float> frame_rate;
    std::int32_t clock_correction = 0;

    // [exposure], [gain], [auto]
    control_mode exposure_mode = control_mode::untouched;
    std::optional<float> exposure_time_us;
    std::optional<limits> exposure_limits_us;
    control_mode gain_mode = control_mode::untouched;
    std::optional<float> gain_db;
    std::optional<limits> gain_limits_db;
    std::optional<float> brightness;
    bool auto_area = false;

    // [tone]
    bool tone_enabled = false;
    std::optional<float> gamma;
    std::optional<std::string> lut_file;
    std::optional<std::uint32_t> lut_bits;
    lookup_table const* lut = nullptr;  ///< read from lut_file; see kept_table
    float contrast_limit = 4.0F;
    limits percentiles{.low = 0.0F, .high = 100.0F};

    // [[line]]
    std::vector<io_line> lines;

    // [memory]
    std::uint32_t buffers = 16;
    std::uint32_t export_buffers = 16;

    // [run]
    std::uint32_t frames = 0;  ///< 0: no limit
    double grace_time_s = 5.0;
    double retry_interval_s = 2.0;
    std::optional<std::uint32_t> give_up_after = 0;  ///< failed attempts in a row; empty: never

    // [output]
    std::string directory = "recording";
    output_format output = output_format::tiff;
    tiff_compression compression = tiff_compression::none;
    std::optional<std::string> pipeline;
    double keep_s = 0.0;  ///< 0: frames are written as they come
    bool keep_when_lost = false;

    // [control]
    std::optional<std::string> control_socket;  ///< path; empty: the default one

    // [web]
    std::optional<std::string> web_address;     ///< "ADDRESS:PORT"; empty: no page
    std::optional<std::string> web_token_file;  ///< path

    // [ring]
    std::optional<std::string> ring_socket;  ///< path; empty: no other program reads frames from memory

    // [mqtt]
    std::optional<std::string> mqtt_broker;  ///< "mqtt://HOST:PORT" or "mqtts://HOST:PORT"; empty: no messages
    std::string mqtt_topic = "mediagrabber/{instance}";
    bool mqtt_frames = false;
    double mqtt_health_interval_s = 10.0;
    std::optional<std::string> mqtt_username;
    std::optional<std::string> mqtt_password_file;     ///< path, as the three below
    std::optional<std::string> mqtt_ca_file;           ///< empty: the system's authorities
    std::optional<std::string> mqtt_certificate_file;  ///< of this client
    std::optional<std::string> mqtt_key_file;
    std::uint32_t mqtt_queue = 1024;

    // [log]
    std::uint32_t log_level = 2;  ///< 0 nothing to 4 debug
    std::uint32_t log_sinks = 1;  ///< 1 standard output, 2 system log
    std::uint32_t log_instance = 0;

    /// Bit i selects the camera at list index i. With neither model nor mask configured it is the first one.
    std::uint32_t effective_mask() const { return active_mask.value_or(model ? 0U : 1U); }
};

}  // namespace mediagrabber
