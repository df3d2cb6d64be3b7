// SPDX-License-Identifier: MIT
#include "device/camera_state.hpp"

#include <algorithm>

#include "device/bootstrap_registers.hpp"
#include "device/sensor.hpp"

namespace camsim {

namespace {

/// A MAC address in the vendor's range (00-0C-DF) with the FNV-1a hash of the serial number as lower half.
std::uint64_t mac_from(std::string const& serial) {
    std::uint32_t hash = 0x811C'9DC5;
    for (char const letter : serial) {
        hash = (hash ^ static_cast<unsigned char>(letter)) * 0x0100'0193U;
    }
    return 0x000C'DF00'0000ULL | (hash & 0x00FF'FFFFU);
}

std::shared_ptr<nonvolatile_memory> memory_of_new_camera(camera_options const& options) {
    auto made = std::make_shared<nonvolatile_memory>();
    made->user_name = options.user_name;
    return made;
}

}  // namespace

camera_state::camera_state(camera_options const& chosen, network_interface const& interface,
                           device_clock::host_time power_up, std::shared_ptr<nonvolatile_memory> stored)
    : options(chosen),
      identity{chosen.vendor,      chosen.model,  "camsim 1.0",
               "simulated camera", chosen.serial, chosen.mac.value_or(mac_from(chosen.serial))},
      clock(power_up, chosen.tick_frequency, chosen.clock_drift_ppm, chosen.first_tick),
      channels(chosen.stream_channels),
      memory(stored != nullptr ? std::move(stored) : memory_of_new_camera(chosen)) {
    network.address = interface.address;
    network.subnet_mask = interface.subnet_mask;
    for (stream_channel& channel : channels) {
        channel.extended_chunk_data = chosen.chunk_payload == chunk_payload::extended;
    }
    image.area = {chosen.scene.sensor_width, chosen.scene.sensor_height, 0, 0};
}

std::uint16_t& camera_state::lut_entry() {
    bool const colour = cfa_of(image.format) != cfa::none;
    return lut.tables[colour ? static_cast<std::size_t>(lut.selected) : 0][lut.index];
}

tone camera_state::frame_tone() {
    switch (lut.mode) {
        case lut_mode::gamma:
            return {.gamma = gammas[lut.gamma].gamma};
        case lut_mode::table:
            if (!frame_lut || frame_lut->channels != lut.tables) {
                std::uint64_t const number = frame_lut ? frame_lut->number + 1 : 1;
                frame_lut = std::make_shared<lut_tables const>(lut_tables{number, lut.tables});
            }
            return {.lut = frame_lut};
        case lut_mode::off:
            break;
    }
    return {};
}

void camera_state::update_levels(double mean) {
    double& gain = image.gains[static_cast<std::size_t>(gain_kind::analog_all)];
    // Automatic exposure never reduces the frame rate.
    double const max_exposure =
        std::min(static_cast<double>(level.max_exposure_us), sensor::max_exposure_at(image.frame_rate));
    auto const result = level_loop.next(
        mean, level.target(),
        {image.exposure_us, level.exposure != automatic::off, static_cast<double>(level.min_exposure_us), max_exposure},
        {gain, level.gain != automatic::off, static_cast<double>(level.min_gain_raw) / 100.0,
         static_cast<double>(level.max_gain_raw) / 100.0});
    image.exposure_us = result.exposure_us;
    gain = result.gain;
    for (automatic* const mode : {&level.gain, &level.exposure}) {
        if (*mode == automatic::once && result.settled) {
            *mode = automatic::off;
        }
    }
}

void camera_state::change_lines(std::function<void(output_lines&)> change, time_point when) {
    change(lines);
    if (on_line_change) {
        on_line_change({when, std::move(change)});
    }
}

void camera_state::fire_trigger(trigger_source from, time_point when) {
    if (channels[0].open() && trigger.fire(from, when)) {
        changed.notify_all();
    }
}

void camera_state::set_line1(bool high) {
    bool const edge = high != line1 && high == (trigger.settings.edge == trigger_edge::rising);
    line1 = high;
    if (edge) {
        fire_trigger(trigger_source::line1);
    }
}

user_set camera_state::settings() const {
    return {.image = image,
            .trigger = trigger.settings,
            .level = level,
            .lut = lut,
            .lines = lines.lines,
            .chunks = chunks};
}

gvcp::status camera_state::load_user_set(std::size_t index) {
    if (acquiring) {
        return gvcp::status::busy;
    }
    std::optional<user_set> const set = index == 0 ? initial : memory->user_sets[index - 1];
    if (!set) {
        return gvcp::status::access_denied;
    }
    image = set->image;
    trigger.settings = set->trigger;
    level = set->level;
    lut = set->lut;
    chunks = set->chunks;
    change_lines([stored = set->lines](output_lines& target) { target.lines = stored; });
    return gvcp::status::success;
}

gvcp::status camera_state::save_user_set(std::size_t index) {
    if (index == 0) {
        return gvcp::status::access_denied;
    }
    memory->user_sets[index - 1] = settings();
    return gvcp::status::success;
}

gvcp::status camera_state::start_acquisition() {
    if (!sensor::on_sensor(image.area, options.scene.sensor_width, options.scene.sensor_height)) {
        return gvcp::status::invalid_parameter;
    }
    if (!acquiring) {
        acquiring = true;
        trigger.arm(true);
        ++acquisition_run;
        changed.notify_all();
    }
    return gvcp::status::success;
}

void camera_state::stop_acquisition() {
    acquiring = false;
    trigger.arm(false);
    changed.notify_all();
}

gvsp::payload_type camera_state::payload_type() const {
    if (chunks.sent().none()) {
        return gvsp::payload_type::image;
    }
    if (options.chunk_payload == chunk_payload::deprecated) {
        return gvsp::payload_type::extended_chunk_data;
    }
    return channels[0].extended_chunk_data ? gvsp::payload_type::image_with_chunks : gvsp::payload_type::chunk_data;
}

void camera_state::open_or_close_channel(std::size_t channel, std::uint16_t host_port) {
    bool const opens = channels[channel].host_port == 0 && host_port != 0;
    channels[channel].host_port = host_port;
    if (channel == 0 && opens) {
        ++channel_openings;
    }
    changed.notify_all();
}

void camera_state::lose_control() {
    control.release();
    gvcp_configuration &= bootstrap::ieee_1588_enable;  // the clock is not the application's alone
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
