#include "camera_state.hpp"

#include <algorithm>

#include "sensor.hpp"

namespace camsim {

namespace {

/// A MAC address in the vendor's range (00-0C-DF), its lower half made from the serial number (FNV-1a).
std::uint64_t mac_from(std::string const& serial) {
    std::uint32_t hash = 0x811C'9DC5;
    for (char const letter : serial) {
        hash = (hash ^ static_cast<unsigned char>(letter)) * 0x0100'0193U;
    }
    return 0x000C'DF00'0000ULL | (hash & 0x00FF'FFFFU);
}

}  // namespace

camera_state::camera_state(camera_options const& chosen, network_interface const& interface,
                           device_clock::host_time power_up)
    : options(chosen),
      identity{chosen.vendor,
               chosen.model,
               "camsim 1.0",
               "simulated camera",
               chosen.serial,
               chosen.user_name,
               chosen.mac.value_or(mac_from(chosen.serial))},
      clock(power_up, chosen.tick_frequency, chosen.clock_drift_ppm, chosen.first_tick),
      channels(chosen.stream_channels) {
    network.address = interface.address;
    network.subnet_mask = interface.subnet_mask;
    image.area = {chosen.scene.sensor_width, chosen.scene.sensor_height, 0, 0};
}

/// The entry that LUTIndex and LUTSelector lead to. A monochrome picture has one table, the first.
std::uint16_t& camera_state::lut_entry() {
    bool const colour = image.format == pixel_format::bayer_rg8;
    return lut.tables[colour ? static_cast<std::size_t>(lut.selected) : 0][lut.index];
}

/// What a frame that is exposed now is bent by. The tables are copied when they have changed: what is written while
/// the frame is sent belongs to the next one.
tone camera_state::frame_tone() {
    switch (lut.mode) {
        case lut_mode::gamma:
            return {.gamma = gammas[lut.gamma].gamma};
        case lut_mode::table:
            if (!lut.sent || lut.sent->channels != lut.tables) {
                std::uint64_t const number = lut.sent ? lut.sent->number + 1 : 1;
                lut.sent = std::make_shared<lut_tables const>(lut_tables{number, lut.tables});
            }
            return {.lut = lut.sent};
        case lut_mode::off:
            break;
    }
    return {};
}

/// Gain and exposure of the next frame, as far as they are automatic.
/// \param mean of the last frame, as a 12-bit value
void camera_state::follow_brightness(double mean) {
    double& gain = image.gains[static_cast<std::size_t>(gain_kind::analog_all)];
    // An automatic exposure never lowers the frame rate.
    double const longest =
        std::min(static_cast<double>(level.longest_exposure_us), sensor::longest_exposure_at(image.frame_rate));
    auto const result = control_of_level.next(
        mean, level.target(),
        {image.exposure_us, level.exposure != automatic::off, static_cast<double>(level.shortest_exposure_us), longest},
        {gain, level.gain != automatic::off, static_cast<double>(level.lowest_gain_raw) / 100.0,
         static_cast<double>(level.highest_gain_raw) / 100.0});
    image.exposure_us = result.exposure_us;
    gain = result.gain;
    for (automatic* const mode : {&level.gain, &level.exposure}) {
        if (*mode == automatic::once && result.settled) {
            *mode = automatic::off;
        }
    }
}

/// \param when it happened; a frame that is exposed late began when it should have
void camera_state::change_lines(std::function<void(output_lines&)> change, time_point when) {
    change(lines);
    if (on_line_change) {
        on_line_change({when, std::move(change)});
    }
}

/// \return invalid_parameter when the region does not lie on the sensor; width and offset are set one after the other,
/// so only here it is known whether they go together
gvcp::status camera_state::start_acquisition() {
    if (!sensor::on_sensor(image.area, options.scene.sensor_width, options.scene.sensor_height)) {
        return gvcp::status::invalid_parameter;
    }
    if (!acquiring) {
        acquiring = true;
        ++acquisition_run;
        changed.notify_all();
    }
    return gvcp::status::success;
}

void camera_state::stop_acquisition() {
    acquiring = false;
    changed.notify_all();
}

/// A write of the host port opens the channel, port 0 closes it. Blocks of a channel opened anew count from 1.
void camera_state::open_or_close_channel(std::size_t channel, std::uint16_t host_port) {
    bool const opens = channels[channel].host_port == 0 && host_port != 0;
    channels[channel].host_port = host_port;
    if (channel == 0 && opens) {
        ++channel_openings;
    }
    changed.notify_all();
}

/// The primary application is gone, by its own will or by silence. Streams end, except unconditional ones; what it had
/// set of the protocol (a switched-off heartbeat above all) does not outlive it.
void camera_state::lose_control() {
    control.release();
    gvcp_configuration = 0;
    parameters_locked = false;
    for (std::size_t index = 0; index < channels.size(); ++index) {
        if (!channels[index].unconditional_streaming) {
            open_or_close_channel(index, 0);
        }
    }
    if (!channels[0].open()) {
        stop_acquisition();
    }
}

}  // namespace camsim
