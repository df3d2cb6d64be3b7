/// \file
/// Commands to the simulated camera, of three applications, while time passes.
///
/// Input: a byte that says what kind of camera it is; then steps of a byte of what happens, a length, milliseconds in
/// steps of 8, and as many bytes of a datagram.

#include <chrono>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "bootstrap_registers.hpp"
#include "byte_order.hpp"
#include "camera_features.hpp"
#include "feature_registers.hpp"
#include "fuzz_input.hpp"
#include "genicam_xml.hpp"
#include "gvcp_device.hpp"
#include "sensor.hpp"

namespace {

using namespace camsim;

network_interface const interface_of_camera{{}, 1, 0x7F000001, 0xFF000000};

// The byte that says what kind of camera it is.
constexpr uint8_t slow_writes_bit = 1;
constexpr uint8_t dependent_limits_bit = 2;
constexpr uint8_t locked_lut_bit = 4;
constexpr uint8_t camera_bits = 7;

// A byte of what happens.
constexpr uint8_t applications = 3;  ///< the lower two bits say which
constexpr uint8_t broadcast_bit = 4;
constexpr uint8_t fitting_bit = 8;       ///< the datagram is given a command's header that fits
constexpr uint8_t register_bit = 16;     ///< and its address is made that of a register
constexpr uint8_t controlling_bit = 32;  ///< the application takes control before

camera_options options_of(uint8_t kind) {
    camera_options options;
    options.stream_channels = 2;
    options.write_time = std::chrono::milliseconds((kind & slow_writes_bit) != 0 ? 50 : 0);
    options.dependent_roi_limits = (kind & dependent_limits_bit) != 0;
    options.lut_locked_while_acquiring = (kind & locked_lut_bit) != 0;
    return options;
}

/// A camera without sockets. Its registers are made once; its state is new for every input.
class camera_on_the_bench {
public:
    explicit camera_on_the_bench(uint8_t kind)
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

    /// As it is after power-up. Registers refer to the state and to its channels, which therefore stay where they are.
    void reset() {
        std::vector<stream_channel> channels = std::move(state_->channels);
        state_.emplace(options_, interface_of_camera, power_up_);
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
    std::string description_;
    register_map registers_;
    std::vector<std::uint32_t> addresses_;
};

camera_on_the_bench& camera_of(uint8_t kind) {
    static std::array<std::unique_ptr<camera_on_the_bench>, camera_bits + 1> cameras;
    auto& place = cameras[kind & camera_bits];
    if (!place) {
        place = std::make_unique<camera_on_the_bench>(kind);
    }
    return *place;
}

constexpr std::array commands{gvcp::command::discovery, gvcp::command::forceip,  gvcp::command::packetresend,
                              gvcp::command::readreg,   gvcp::command::writereg, gvcp::command::readmem,
                              gvcp::command::writemem,  gvcp::command::pending};

/// Makes a datagram a command with the right length and, where wanted, the address of a register.
void make_fitting(std::vector<std::byte>& datagram, bool of_register, camera_on_the_bench const& camera) {
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

void check_answers(gvcp_outcome const& outcome, std::span<std::byte const> datagram, camera_state const& state) {
    require(outcome.answers.size() <= 2, "a command is answered once, and announced once");
    require(outcome.answers.empty() || std::to_integer<unsigned>(datagram[0]) == gvcp::command_key,
            "only commands are answered");
    for (gvcp_answer const& one : outcome.answers) {
        auto const header = gvcp::decode_acknowledge_header(one.datagram);
        require(header.has_value(), "an answer has a header");
        require(one.datagram.size() <= gvcp::maximum_datagram, "an answer is no longer than the protocol allows");
        require(header->length == one.datagram.size() - gvcp::header_size, "an answer tells its length");
        require(header->acknowledge_id == load_be16(datagram, 6), "an answer has the number of its command");
    }
    if (outcome.resend) {
        require(outcome.resend->destination == endpoint{state.channels[0].destination, state.channels[0].host_port},
                "packets go nowhere but where the stream goes");
        require(state.channels[0].open(), "packets go nowhere without a stream");
    }
}

/// What the camera's threads rely on.
void check_state(camera_state const& state) {
    auto const& image = state.image;
    auto const& scene = state.options.scene;
    require(!state.acquiring || sensor::on_sensor(image.area, scene.sensor_width, scene.sensor_height),
            "what is exposed lies on the sensor");
    require(image.area.width >= sensor::smallest_side && image.area.height >= sensor::smallest_side,
            "a picture has pixels");
    require(image.frame_rate > 0.0 && image.exposure_us >= sensor::shortest_exposure_us, "frames take time");
    require(image.total_gain() > 0.0, "a gain is above 0");
    for (stream_channel const& one : state.channels) {
        require(one.packet_size >= stream_channel::smallest_packet && one.packet_size <= stream_channel::largest_packet,
                "a packet has a size");
    }
    require(state.selected_channel < state.channels.size(), "a channel that is there is selected");
    require(state.heartbeat_timeout >= bootstrap::shortest_heartbeat_timeout, "a heartbeat is not too short");
    require(state.lut.index < lut_entries && state.lut.gamma < gammas.size(), "a table's entry is one of its own");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
    fuzz_input input(data, size);
    camera_on_the_bench& camera = camera_of(input.byte());
    camera.reset();
    camera_state& state = camera.state();
    gvcp_device device(state, camera.registers());
    gvcp_device::time_point now{};
    while (!input.empty()) {
        uint8_t const what = input.byte();
        std::size_t const length = std::size_t{input.byte()} * 3;
        now += std::chrono::milliseconds(8 * input.byte());
        endpoint const sender{0x7F000001U + what % applications, 40000};
        auto const bytes = std::as_bytes(input.bytes(length));
        std::vector<std::byte> datagram(bytes.begin(), bytes.end());
        if ((what & fitting_bit) != 0) {
            make_fitting(datagram, (what & register_bit) != 0, camera);
        }
        if ((what & controlling_bit) != 0) {
            gvcp::register_write const control{bootstrap::control_channel_privilege, 2};
            device.handle(gvcp::encode_command({1, 0x82, 8, 1}, gvcp::encode_writereg_payload({&control, 1})), sender,
                          now);
        }
        auto const outcome =
            device.handle(datagram, sender, now, (what & broadcast_bit) != 0 ? delivery::broadcast : delivery::unicast);
        check_answers(outcome, datagram, state);
        check_state(state);
        device.check_heartbeat(now);
        require(!device.control_expiry() || *device.control_expiry() > now, "control that has run out is taken away");
    }
    state.frame_tone();
    return 0;
}
