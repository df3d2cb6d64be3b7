#include "camera.hpp"

#include <functional>
#include <stdexcept>

#include "access_faults.hpp"
#include "acquisition.hpp"
#include "active_faults.hpp"
#include "answer_faults.hpp"
#include "block_sender.hpp"
#include "bootstrap_registers.hpp"
#include "camera_features.hpp"
#include "camera_state.hpp"
#include "fault_control.hpp"
#include "fault_timeline.hpp"
#include "feature_registers.hpp"
#include "genicam_xml.hpp"
#include "gvcp_device.hpp"
#include "gvcp_server.hpp"
#include "line_trace.hpp"
#include "packet_outlet.hpp"
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

using time_point = std::chrono::steady_clock::time_point;

std::unique_ptr<truth_writer> open_truth(camera_options const& options, time_point power_up) {
    if (options.truth_file.empty()) {
        return nullptr;
    }
    return std::make_unique<truth_writer>(
        options.truth_file,
        truth_header{options.model, options.serial, options.tick_frequency, options.clock_drift_ppm, options.scene,
                     std::chrono::duration_cast<std::chrono::nanoseconds>(power_up.time_since_epoch()).count()});
}

/// The lines after what the options leave of the features.
output_lines lines_at_power_up(camera_options const& options) {
    camera_state state(options, {}, {});
    camera_features(state);
    return state.lines;
}

std::unique_ptr<line_trace> open_trace(camera_options const& options, time_point power_up) {
    if (options.line_trace_file.empty()) {
        return nullptr;
    }
    return std::make_unique<line_trace>(options.line_trace_file, power_up, lines_at_power_up(options));
}

std::vector<std::string> names_of_features(camera_options const& options) {
    camera_state state(options, {}, {});
    return feature_names(camera_features(state));
}

/// The faults that are in force, and what they are in force upon.
struct faults_of_line {
    faults_of_line(camera_options const& options, std::function<void()> changed)
        : active(options.faults.seed.value_or(options.scene.seed)),
          of_stream(active),
          of_answers(active),
          timeline(active, std::move(changed)) {}

    active_faults active;
    stream_faults of_stream;
    answer_faults of_answers;
    fault_timeline timeline;
};

/// What works while the camera has power, in the order in which the parts need each other; threads come last and end
/// first.
struct powered_parts {
    /// \param truth, trace  may be null
    powered_parts(camera_options const& options, network_interface const& interface, time_point power_up,
                  gvcp_sockets& sockets, faults_of_line& faults, truth_writer* truth, line_trace* trace)
        : state(options, interface, power_up),
          features(place(camera_features(state))),
          description(genicam_xml(options.vendor, options.model, features)),
          socket(interface.address),
          outlet(socket, faults.of_stream),
          sent(options.resend_blocks),
          resender(options.scene, outlet, sent),
          accesses(faults.active, features),
          device(state, registers, &accesses),
          delivery(state, outlet, sent, truth),
          sensor(state, delivery),
          server(state, device, resender, sockets, faults.of_answers) {
        state.channels[0].source_port = socket.port();
        if (trace != nullptr) {
            state.on_line_change = [trace](line_change const& change) { trace->add(change); };
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

    void start() {
        delivery.start();
        sensor.start();
        server.start();
    }

    void stop() {
        server.stop();
        sensor.stop();
        delivery.stop();
    }

    /// Takes over what is wrong with the camera itself.
    void follow(active_faults const& faults) {
        auto const freeze = faults.find(fault_kind::freeze);
        auto const jump = faults.find(fault_kind::timestamp_jump);
        auto const wrap = faults.find(fault_kind::timestamp_wrap);
        {
            std::scoped_lock const lock(state.mutex);
            state.frozen = freeze.has_value();
            state.deaf = freeze && freeze->yes("control");
            state.clock.falsify_counter({.ahead_s = jump ? jump->number("by_s") : 0.0,
                                         .bits = wrap ? static_cast<unsigned>(wrap->number("bits")) : 64U});
        }
        state.changed.notify_all();
        server.wake();
    }

    camera_state state;
    std::vector<placed_feature> features;
    std::string description;
    stream_socket socket;
    packet_outlet outlet;
    sent_blocks sent;
    block_resender resender;
    register_map registers;
    access_faults accesses;
    gvcp_device device;
    frame_delivery delivery;
    acquisition sensor;
    gvcp_server server;
};

}  // namespace

/// The camera with or without power. Once the fault timeline has started, power is its affair until it has ended.
struct camera::parts {
    explicit parts(camera_options const& chosen)
        : options(chosen),
          interface(interface_of(options.address)),
          sockets(interface),
          power_up(std::chrono::steady_clock::now()),
          truth(open_truth(options, power_up)),
          trace(open_trace(options, power_up)),
          faults(options, [this] { follow_faults(); }),
          on(with_power(power_up)) {}

    ~parts() {
        control.reset();
        faults.timeline.stop();
    }

    std::unique_ptr<powered_parts> with_power(time_point since) {
        return std::make_unique<powered_parts>(options, interface, since, sockets, faults, truth.get(), trace.get());
    }

    /// Called with every change of the faults in force, by one thread at a time.
    void follow_faults() {
        bool const has_power = !faults.active.find(fault_kind::power_cut);
        if (on && !has_power) {
            cut_power();
        } else if (!on && has_power) {
            return_power();
        }
        if (on) {
            on->follow(faults.active);
        }
    }

    /// Everything that was set is gone. What arrives finds nobody.
    void cut_power() {
        on->stop();
        on.reset();
        if (trace) {
            trace->add({std::chrono::steady_clock::now(), [](output_lines& lines) { lines = {}; }});
        }
    }

    void return_power() {
        sockets.discard();
        auto const now = std::chrono::steady_clock::now();
        on = with_power(now);
        on->state.boot = ++boot;
        if (trace) {
            trace->add({now, [fresh = on->state.lines](output_lines& lines) { lines = fresh; }});
        }
        on->start();
    }

    camera_options const options;
    network_interface const interface;
    gvcp_sockets sockets;
    time_point const power_up;
    std::unique_ptr<truth_writer> truth;
    std::unique_ptr<line_trace> trace;
    std::uint64_t boot = 1;
    faults_of_line faults;
    std::unique_ptr<powered_parts> on;  ///< null: without power
    std::unique_ptr<fault_control> control;
};

/// Takes the camera's address and port; nothing is answered before start().
/// \throws std::runtime_error (std::system_error among them) with a message to act on, when the address is not one of
/// this host, the port is taken, or the truth file or the line trace cannot be written
camera::camera(camera_options const& options) : parts_(std::make_unique<parts>(options)) {}

camera::~camera() = default;

/// \throws std::runtime_error with a message to act on, when the control socket can't be made
void camera::start() {
    camera_options const& options = parts_->options;
    parts_->on->start();
    parts_->faults.timeline.start(options.faults.faults, std::chrono::steady_clock::now());
    if (!options.control_socket.empty()) {
        parts_->control = std::make_unique<fault_control>(
            options.control_socket, [this, features = names_of_features(options)](std::string const& line) {
                return answer_fault_request(line, parts_->faults.timeline, parts_->faults.active, features);
            });
    }
}

/// Ends the threads: no answer, no packet and no line of truth comes after it.
void camera::stop() {
    parts_->control.reset();
    parts_->faults.timeline.stop();
    if (parts_->on) {
        parts_->on->stop();
    }
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
