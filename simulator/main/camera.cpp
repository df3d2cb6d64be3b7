// SPDX-License-Identifier: MIT
#include "main/camera.hpp"

#include <functional>
#include <mutex>
#include <stdexcept>

#include "control/access_faults.hpp"
#include "control/ack_faults.hpp"
#include "control/control_socket.hpp"
#include "control/gvcp_device.hpp"
#include "control/gvcp_server.hpp"
#include "device/bootstrap_registers.hpp"
#include "device/camera_faults.hpp"
#include "device/camera_state.hpp"
#include "device/line_trace.hpp"
#include "faults/active_faults.hpp"
#include "faults/fault_timeline.hpp"
#include "features/camera_features.hpp"
#include "genicam/feature_registers.hpp"
#include "genicam/genicam_xml.hpp"
#include "genicam/zip_archive.hpp"
#include "stream/acquisition.hpp"
#include "stream/block_sender.hpp"
#include "stream/packet_outlet.hpp"
#include "stream/test_packet.hpp"
#include "stream/truth_log.hpp"

namespace camsim {

namespace {

/// Behind the registers of the features, which start at 0x10000 and have 32 bytes each.
constexpr std::uint32_t xml_address = 0x0010'0000;

network_interface interface_of(ipv4_address address) {
    auto const found = interface_with_address(address);
    if (!found) {
        throw std::runtime_error("this host has no network interface with address " + to_string(address) +
                                 "; use one of its addresses with --address, or an interface with --interface");
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

/// The state of the lines; options that remove entries of LineSource change it.
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

/// The active faults and the filters that apply them. Outlives power cycles.
struct fault_injection {
    fault_injection(camera_options const& options, std::function<void()> changed)
        : active(options.faults.seed.value_or(options.scene.seed)),
          stream(active),
          acks(active),
          timeline(active, std::move(changed)) {}

    active_faults active;
    stream_faults stream;
    ack_faults acks;
    fault_timeline timeline;
};

/// The parts of the camera that need power, in the order in which they depend on each other: objects with threads come
/// last and are destroyed first.
struct powered_parts {
    /// \param truth, trace  may be null
    powered_parts(camera_options const& options, network_interface const& interface, time_point power_up,
                  gvcp_sockets& sockets, fault_injection& faults, std::shared_ptr<nonvolatile_memory> memory,
                  truth_writer* truth, line_trace* trace)
        : state(options, interface, power_up, std::move(memory)),
          features(place(camera_features(state))),
          xml(genicam_xml(options.vendor, options.model, features)),
          socket(interface.address),
          outlet(socket, faults.stream),
          sent(options.resend_blocks),
          resender(options.scene, outlet, sent),
          accesses(faults.active, features),
          device(
              state, registers, [this, &sockets](ipv4_address to) { return move(sockets, to); }, &accesses),
          delivery(state, outlet, sent, truth),
          sensor(state, delivery),
          server(state, device, resender, sockets, faults.acks) {
        state.channels[0].source_port = socket.port();
        state.load_user_set(state.memory->default_user_set);  // without effect if it has never been saved
        if (trace != nullptr) {
            state.on_line_change = [trace](line_change const& change) { trace->add(change); };
        }
        add_registers();
    }

    void add_registers() {
        std::string content = state.options.xml_zip ? zip_archive("camsim.xml", xml) : xml;
        auto const length = static_cast<std::uint32_t>(content.size());
        std::uint32_t const padded = (length + 3) / 4 * 4;
        registers.add(text_register(xml_address, padded, [content = std::move(content)] { return content; }));
        add_bootstrap_registers(registers, state, {xml_address, length, state.options.xml_zip},
                                [this](std::uint32_t channel) { fire_test_packet(channel); });
        add_feature_registers(registers, features, [this] { return state.acquiring || state.parameters_locked; });
    }

    /// Called by FORCEIP, with the state's mutex held. Moves both sockets or none.
    bool move(gvcp_sockets& sockets, ipv4_address to) {
        if (!sockets.move(to)) {
            return false;
        }
        if (!socket.move(to)) {
            sockets.move(state.network.address);
            return false;
        }
        state.channels[0].source_port = socket.port();
        return true;
    }

    /// Called by a write of a register, with the state's mutex held.
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

    /// Applies the faults of the camera itself, except power_cycle.
    void apply_faults(active_faults const& faults) {
        {
            std::lock_guard const lock(state.mutex);
            apply_camera_faults(faults, state);
        }
        state.changed.notify_all();
        server.wake();
    }

    camera_state state;
    std::vector<placed_feature> features;
    std::string xml;
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

/// The camera with or without power. While the fault timeline runs, only its thread switches power.
struct camera::parts {
    explicit parts(camera_options const& chosen)
        : options(chosen),
          interface(interface_of(options.address)),
          sockets(interface),
          power_up(std::chrono::steady_clock::now()),
          truth(open_truth(options, power_up)),
          trace(open_trace(options, power_up)),
          faults(options, [this] { apply_faults(); }),
          powered(make_powered(interface, power_up)),
          memory(powered->state.memory) {}

    ~parts() {
        control.reset();
        faults.timeline.stop();
    }

    /// \param stored what an earlier power cycle stored; null: a new camera
    std::unique_ptr<powered_parts> make_powered(network_interface const& at, time_point since,
                                                std::shared_ptr<nonvolatile_memory> stored = nullptr) {
        return std::make_unique<powered_parts>(options, at, since, sockets, faults, std::move(stored), truth.get(),
                                               trace.get());
    }

    /// Called for every change of the active faults, by one thread at a time.
    void apply_faults() {
        std::lock_guard const lock(power_mutex);
        bool const power = has_power(faults.active);
        if (powered && !power) {
            switch_off();
        } else if (!powered && power) {
            switch_on();
        }
        if (powered) {
            powered->apply_faults(faults.active);
        }
    }

    /// Called by the control socket's thread.
    void set_line1(bool high) {
        std::lock_guard const lock(power_mutex);
        line1 = high;
        if (powered) {
            std::lock_guard const state_lock(powered->state.mutex);
            powered->state.set_line1(high);
        }
    }

    /// Discards all settings but those in the non-volatile memory. Commands that arrive from now on are lost.
    void switch_off() {
        powered->stop();
        powered.reset();
        if (trace) {
            trace->add({std::chrono::steady_clock::now(), [](output_lines& lines) { lines = {}; }});
        }
    }

    /// The address of FORCEIP is lost at power-up. The persistent one takes its place if it is enabled and available,
    /// otherwise that of the options.
    network_interface interface_at_power_up() {
        bool const persistent = (memory->ip_methods & ip_method::persistent) != 0;
        if (persistent && sockets.move(memory->persistent_address)) {
            network_interface chosen = interface;
            chosen.address = memory->persistent_address;
            chosen.subnet_mask = memory->persistent_subnet_mask;
            return chosen;
        }
        sockets.move(interface.address);
        return interface;
    }

    void switch_on() {
        network_interface const now_at = interface_at_power_up();
        sockets.discard();
        auto const now = std::chrono::steady_clock::now();
        powered = make_powered(now_at, now, memory);
        powered->state.power_cycle = ++power_cycle;
        powered->state.line1 = line1;
        if (trace) {
            trace->add({now, [initial = powered->state.lines](output_lines& lines) { lines = initial; }});
        }
        powered->start();
    }

    camera_options const options;
    network_interface const interface;
    gvcp_sockets sockets;
    time_point const power_up;
    std::unique_ptr<truth_writer> truth;
    std::unique_ptr<line_trace> trace;
    std::uint64_t power_cycle = 1;
    fault_injection faults;
    std::mutex power_mutex;                  ///< guards `powered` and `line1` while the fault timeline runs
    bool line1 = false;                      ///< level that the outside world gives the input line
    std::unique_ptr<powered_parts> powered;  ///< null: no power
    std::shared_ptr<nonvolatile_memory> const memory;
    std::unique_ptr<control_socket> control;
};

camera::camera(camera_options const& options) : parts_(std::make_unique<parts>(options)) {}

camera::~camera() = default;

void camera::start() {
    camera_options const& options = parts_->options;
    parts_->powered->start();
    parts_->faults.timeline.start(options.faults.faults, std::chrono::steady_clock::now());
    if (!options.control_socket.empty()) {
        parts_->control = std::make_unique<control_socket>(
            options.control_socket, [this, features = names_of_features(options)](std::string const& line) {
                return handle_control_request(line, parts_->faults.timeline, parts_->faults.active, features,
                                              [this](bool high) { parts_->set_line1(high); });
            });
    }
}

void camera::stop() {
    parts_->control.reset();
    parts_->faults.timeline.stop();
    if (parts_->powered) {
        parts_->powered->stop();
    }
    if (parts_->truth) {
        parts_->truth->finish();
    }
    if (parts_->trace) {
        parts_->trace->finish();
    }
}

bool camera::files_failed() const {
    return (parts_->truth && parts_->truth->failed()) || (parts_->trace && parts_->trace->failed());
}

std::string camera_xml(camera_options const& options) {
    camera_state state(options, {}, {});
    return genicam_xml(options.vendor, options.model, place(camera_features(state)));
}

}  // namespace camsim
