#include "camera.hpp"

#include <stdexcept>

#include "acquisition.hpp"
#include "block_sender.hpp"
#include "bootstrap_registers.hpp"
#include "camera_features.hpp"
#include "camera_state.hpp"
#include "feature_registers.hpp"
#include "genicam_xml.hpp"
#include "gvcp_device.hpp"
#include "gvcp_server.hpp"
#include "line_trace.hpp"
#include "test_packet.hpp"
#include "truth_log.hpp"

namespace camsim {

namespace {

constexpr std::uint32_t description_address = 0x0010'0000;

network_interface interface_of(ipv4_address address) {
    auto const found = interface_with_address(address);
    if (!found) {
        throw std::runtime_error("this host has no network interface with address " + to_string(address) +
                                 "; give one of its addresses with --address, or an interface with --interface");
    }
    return *found;
}

std::unique_ptr<truth_writer> open_truth(camera_options const& options, device_clock const& clock) {
    if (options.truth_file.empty()) {
        return nullptr;
    }
    return std::make_unique<truth_writer>(
        options.truth_file,
        truth_header{
            options.model, options.serial, options.tick_frequency, options.clock_drift_ppm, options.scene,
            std::chrono::duration_cast<std::chrono::nanoseconds>(clock.power_up().time_since_epoch()).count()});
}

/// \param lines as they are after what the options leave of the features
std::unique_ptr<line_trace> open_trace(camera_options const& options, device_clock const& clock,
                                       output_lines const& lines) {
    if (options.line_trace_file.empty()) {
        return nullptr;
    }
    return std::make_unique<line_trace>(options.line_trace_file, clock.power_up(), lines);
}

}  // namespace

/// The parts in the order in which they need each other; threads come last and end first.
struct camera::parts {
    explicit parts(camera_options const& options)
        : interface(interface_of(options.address)),
          state(options, interface, std::chrono::steady_clock::now()),
          features(place(camera_features(state))),
          description(genicam_xml(options.vendor, options.model, features)),
          truth(open_truth(options, state.clock)),
          trace(open_trace(options, state.clock, state.lines)),
          socket(interface.address),
          sent(options.resend_blocks),
          resender(options.scene, socket, sent),
          device(state, registers),
          delivery(state, socket, sent, truth.get()),
          sensor(state, delivery),
          server(state, device, resender, interface) {
        state.channels[0].source_port = socket.port();
        if (trace) {
            state.on_line_change = [this](line_change const& change) { trace->add(change); };
        }
        add_registers();
    }

    void add_registers() {
        auto const length = static_cast<std::uint32_t>(description.size());
        std::uint32_t const padded = (length + 3) / 4 * 4;
        registers.add(text_register(description_address, padded, [this] { return description; }));
        add_bootstrap_registers(registers, state, {description_address, length},
                                [this](std::uint32_t channel) { fire_test_packet(channel); });
        add_feature_registers(registers, features, [this] { return state.acquiring || state.parameters_locked; });
    }

    /// Called by a register's write, with the state's mutex held.
    void fire_test_packet(std::uint32_t index) {
        stream_channel const& channel = state.channels[index];
        if (channel.open()) {
            socket.set_do_not_fragment(channel.do_not_fragment);
            send_test_packet(socket, {channel.destination, channel.host_port}, channel.packet_size);
        }
    }

    network_interface interface;
    camera_state state;
    std::vector<placed_feature> features;
    std::string description;
    std::unique_ptr<truth_writer> truth;
    std::unique_ptr<line_trace> trace;
    stream_socket socket;
    sent_blocks sent;
    block_resender resender;
    register_map registers;
    gvcp_device device;
    frame_delivery delivery;
    acquisition sensor;
    gvcp_server server;
};

/// Takes the camera's address and port; nothing is answered before start().
/// \throws std::runtime_error (std::system_error among them) with a message to act on, when the address is not one of
/// this host, the port is taken, or the truth file or the line trace cannot be written
camera::camera(camera_options const& options) : parts_(std::make_unique<parts>(options)) {}

camera::~camera() = default;

void camera::start() {
    parts_->delivery.start();
    parts_->sensor.start();
    parts_->server.start();
}

/// Ends the threads: no answer, no packet and no line of truth comes after it.
void camera::stop() {
    parts_->server.stop();
    parts_->sensor.stop();
    parts_->delivery.stop();
    if (parts_->truth) {
        parts_->truth->finish();
    }
    if (parts_->trace) {
        parts_->trace->finish();
    }
}

/// Whether something is missing from the truth file or the line trace because it could not be written.
bool camera::files_failed() const {
    return (parts_->truth && parts_->truth->failed()) || (parts_->trace && parts_->trace->failed());
}

/// The GenICam description of a camera with these options, without making one.
std::string describe(camera_options const& options) {
    camera_state state(options, {}, {});
    return genicam_xml(options.vendor, options.model, place(camera_features(state)));
}

}  // namespace camsim
