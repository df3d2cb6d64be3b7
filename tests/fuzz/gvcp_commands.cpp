// SPDX-License-Identifier: MIT
/// \file
/// GVCP commands of three applications to the simulated camera, while time passes.
///
/// Input: a byte of camera options; then steps, each with a byte of step flags, a length, milliseconds in units of 8,
/// and that many bytes of a datagram (in units of 3).

#include <chrono>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/byte_order.hpp"
#include "control/gvcp_device.hpp"
#include "device/bootstrap_registers.hpp"
#include "device/sensor.hpp"
#include "features/camera_features.hpp"
#include "fuzz_input.hpp"
#include "genicam/feature_registers.hpp"
#include "genicam/genicam_xml.hpp"

namespace {

using namespace camsim;

network_interface const interface_of_camera{{}, 1, 0x7F000001, 0xFF000000};

// Camera options.
constexpr uint8_t slow_writes_bit = 1;
constexpr uint8_t dependent_limits_bit = 2;
constexpr uint8_t locked_lut_bit = 4;
constexpr uint8_t camera_bits = 7;

// Step flags.
constexpr uint8_t applications = 3;  ///< the flags modulo this number select one
constexpr uint8_t broadcast_bit = 4;
constexpr uint8_t fitting_bit = 8;       ///< the datagram gets a valid command header
constexpr uint8_t register_bit = 16;     ///< and the address of an existing register
constexpr uint8_t controlling_bit = 32;  ///< the application takes control first

camera_options options_of(uint8_t kind) {
    camera_options options;
    options.stream_channels = 2;
    options.write_time = std::chrono::milliseconds((kind & slow_writes_bit) != 0 ? 50 : 0);
    options.dependent_limits = (kind & dependent_limits_bit) != 0;
    options.lut_locked_while_acquiring = (kind & locked_lut_bit) != 0;
    return options;
}

/// A camera without sockets. Its registers are created once, its state is reset for each input.
class offline_camera {
public:
    explicit offline_camera(uint8_t kind)
        : options_(options_of(kind)), state_(std::in_place, options_, interface_of_camera, power_up_) {
        auto const features = place(camera_features(*state_));
        description_ = genicam_xml(options_.vendor, options_.model, features);
        auto const length = static_cast<std::uint32_t>(description_.size());
        registers_.add(text_register(description_address, (length + 3) / 4 * 4, [this] { return description_; }));
        add_bootstrap_registers(registers_, *state_, {description_address, length}, [](std::uint32_t) {});
        add_feature_registers(registers_, features, [this] { return state_->acquiring || state_->parameters_locked; });
        for (placed_feature const& one : features) {
            addresses_.push_back(one.address);
        }
        for (std::uint32_t address = 0; address < 0x1000; address += 4) {
            std::vector<std::byte> word(4);
            if (registers_.read(address, word) == gvcp::status::success) {
                addresses_.push_back(address);
            }
        }
        addresses_.push_back(description_address);
        addresses_.push_back(description_address + (length + 3) / 4 * 4 - 4);
    }

    /// Resets the state to that of a new camera. Registers refer to the state, its channels and its nonvolatile memory,
    /// so these keep their addresses.
    void reset() {
        std::vector<stream_channel> channels = std::move(state_->channels);
        std::shared_ptr<nonvolatile_memory> const memory = state_->memory;
        user_set const initial = state_->initial;
        *memory = new_memory_;
        state_.emplace(options_, interface_of_camera, power_up_, memory);
        state_->initial = initial;
        state_->load_user_set(0);
        std::ranges::copy(state_->channels, channels.begin());
        state_->channels = std::move(channels);
    }

    std::uint32_t address(std::size_t number) const { return addresses_[number % addresses_.size()]; }
    camera_state& state() { return *state_; }
    register_map const& registers() const { return registers_; }

private:
    static constexpr std::uint32_t description_address = 0x0010'0000;
    device_clock::host_time const power_up_ = std::chrono::steady_clock::now();
    camera_options const options_;
    std::optional<camera_state> state_;
    nonvolatile_memory const new_memory_ = *state_->memory;
    std::string description_;
    register_map registers_;
    std::vector<std::uint32_t> addresses_;
};

offline_camera& camera_of(uint8_t kind) {
    static std::array<std::unique_ptr<offline_camera>, camera_bits + 1> cameras;
    auto& camera = cameras[kind & camera_bits];
    if (!camera) {
        camera = std::make_unique<offline_camera>(kind);
    }
    return *camera;
}

constexpr std::array commands{gvcp::command::discovery, gvcp::command::forceip,  gvcp::command::packetresend,
                              gvcp::command::readreg,   gvcp::command::writereg, gvcp::command::readmem,
                              gvcp::command::writemem,  gvcp::command::pending};

/// Turns a datagram into a command with a correct length and, if `of_register`, the address of an existing register.
void make_fitting(std::vector<std::byte>& datagram, bool of_register, offline_camera const& camera) {
    if (datagram.size() < gvcp::header_size) {
        return;
    }
    auto const command = commands[std::to_integer<std::size_t>(datagram[3]) % commands.size()];
    datagram[0] = std::byte{gvcp::command_key};
    store_be16(datagram, 2, static_cast<std::uint16_t>(command));
    std::size_t const payload = (datagram.size() - gvcp::header_size) / 4 * 4;
    datagram.resize(gvcp::header_size + payload);
    store_be16(datagram, 4, static_cast<std::uint16_t>(payload));
    if (load_be16(datagram, 6) == 0) {
        datagram[7] = std::byte{1};
    }
    bool const single = command == gvcp::command::readmem || command == gvcp::command::writemem;
    std::size_t const step = command == gvcp::command::writereg ? 8 : 4;
    for (std::size_t at = gvcp::header_size; of_register && at + 4 <= datagram.size(); at += step) {
        store_be32(datagram, at, camera.address(load_be32(datagram, at)));
        if (single) {
            break;
        }
    }
}

void check_acks(gvcp_outcome const& outcome, std::span<std::byte const> datagram, camera_state const& state) {
    require(outcome.acks.size() <= 2, "a command has at most one pending and one final acknowledge");
    require(outcome.acks.empty() || std::to_integer<unsigned>(datagram[0]) == gvcp::command_key,
            "only commands are acknowledged");
    for (gvcp_ack const& one : outcome.acks) {
        auto const header = gvcp::decode_acknowledge_header(one.datagram);
        require(header.has_value(), "an acknowledge has a header");
        require(one.datagram.size() <= gvcp::max_datagram_size,
                "an acknowledge is not longer than the protocol allows");
        require(header->length == one.datagram.size() - gvcp::header_size, "an acknowledge has its correct length");
        require(header->acknowledge_id == load_be16(datagram, 6), "an acknowledge has the ID of its command");
    }
    if (outcome.resend) {
        require(outcome.resend->destination == endpoint{state.channels[0].destination, state.channels[0].host_port},
                "packets are resent to the stream's destination only");
        require(state.channels[0].open(), "packets are resent for an open stream only");
    }
}

/// The invariants on which the camera's threads rely.
void check_state(camera_state const& state) {
    auto const& image = state.image;
    auto const& scene = state.options.scene;
    require(!state.acquiring || sensor::on_sensor(image.area, scene.sensor_width, scene.sensor_height),
            "the region lies on the sensor");
    require(image.area.width >= sensor::min_side && image.area.height >= sensor::min_side, "an image has pixels");
    require(image.frame_rate > 0.0 && image.exposure_us >= sensor::min_exposure_us,
            "frame rate and exposure time are above 0");
    require(image.total_gain() > 0.0, "the gain is above 0");
    for (stream_channel const& one : state.channels) {
        require(
            one.packet_size >= stream_channel::min_packet_size && one.packet_size <= stream_channel::max_packet_size,
            "the packet size is within its limits");
    }
    require(state.selected_channel < state.channels.size(), "the selected channel exists");
    require(state.heartbeat_timeout >= bootstrap::min_heartbeat_timeout, "the heartbeat timeout is not too short");
    require(state.lut.index < lut_entries && state.lut.gamma < gammas.size(),
            "LUT index and gamma are within their tables");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    fuzz_input input(data, size);
    offline_camera& camera = camera_of(input.byte());
    camera.reset();
    camera_state& state = camera.state();
    gvcp_device device(state, camera.registers(), [](ipv4_address) { return true; });
    gvcp_device::time_point now{};
    while (!input.empty()) {
        uint8_t const flags = input.byte();
        std::size_t const length = std::size_t{input.byte()} * 3;
        now += std::chrono::milliseconds(8 * input.byte());
        endpoint const sender{0x7F000001U + flags % applications, 40000};
        auto const bytes = std::as_bytes(input.bytes(length));
        std::vector<std::byte> datagram(bytes.begin(), bytes.end());
        if ((flags & fitting_bit) != 0) {
            make_fitting(datagram, (flags & register_bit) != 0, camera);
        }
        if ((flags & controlling_bit) != 0) {
            gvcp::register_write const control{bootstrap::control_channel_privilege, 2};
            device.handle(gvcp::encode_command({1, 0x82, 8, 1}, gvcp::encode_writereg_payload({&control, 1})), sender,
                          now);
        }
        auto const outcome = device.handle(datagram, sender, now,
                                           (flags & broadcast_bit) != 0 ? delivery::broadcast : delivery::unicast);
        check_acks(outcome, datagram, state);
        check_state(state);
        device.check_heartbeat(now);
        require(!device.control_expiry() || *device.control_expiry() > now, "expired control is withdrawn");
    }
    state.frame_tone();
    return 0;
}
