// SPDX-License-Identifier: MIT
/// \file
/// Grabs from a camsim with a minimal receiver and prints statistics: a measurement of what camsim sends without loss,
/// and a byte-for-byte comparison of received frames with frames rendered from the truth file.
#include <algorithm>
#include <bit>
#include <chrono>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>

#include "base/byte_order.hpp"
#include "device/bootstrap_registers.hpp"
#include "features/camera_features.hpp"
#include "gvcp_client.hpp"
#include "protocol/block_layout.hpp"
#include "stream/truth_log.hpp"
#include "stream_receiver.hpp"

namespace {

namespace bootstrap = camsim::bootstrap;
namespace gvsp = camsim::gvsp;
using steady = std::chrono::steady_clock;

struct probe_options {
    std::string camera = "127.0.0.1";
    std::uint32_t width = 1280;
    std::uint32_t height = 1024;
    std::string format = "Mono8";
    double rate = 100.0;
    std::uint32_t packet_size = 8900;
    bool extended_ids = false;
    bool chunks = false;
    bool change_tone = false;
    double seconds = 3.0;
    std::uint64_t frames = 0;  ///< ends after that many complete frames, if not 0
    std::string truth;
};

/// A block that is being received.
struct assembly {
    std::uint64_t block_id = 0;
    std::uint32_t packets = 0;
    std::vector<std::byte> payload;
    std::size_t bytes = 0;
};

struct tally {
    std::uint64_t complete = 0;
    std::uint64_t incomplete = 0;
    std::uint64_t missing_packets = 0;
    std::uint64_t bytes = 0;                                   ///< payload of complete frames
    std::map<std::uint64_t, std::vector<std::byte>> payloads;  ///< by block ID, for the comparison
};

/// Writes features by name; their addresses come from camsim's declarations.
class camera_control {
public:
    explicit camera_control(gvcp_client& client)
        : client_(client), state_({}, {}, {}), features_(camsim::place(camsim::camera_features(state_))) {}

    std::uint32_t address_of(std::string const& name) const {
        auto const found = std::ranges::find_if(
            features_, [&](camsim::placed_feature const& one) { return one.declaration.name == name; });
        if (found == features_.end()) {
            throw std::runtime_error("camsim has no feature " + name);
        }
        return found->address;
    }
    void set(std::string const& name, std::uint32_t value) { client_.write_register(address_of(name), value); }
    void set(std::string const& name, double value) {
        std::array<std::byte, 8> bytes{};
        camsim::store_be64(bytes, 0, std::bit_cast<std::uint64_t>(value));
        client_.write_memory(address_of(name), bytes);
    }

private:
    gvcp_client& client_;
    camsim::camera_state state_;
    std::vector<camsim::placed_feature> features_;
};

/// Writes LUT entries, gamma and their mode continuously, one register at a time, so that exposures start between any
/// two writes.
class tone_changer {
public:
    explicit tone_changer(camera_control& camera) : camera_(camera) {}

    void write_next() {
        std::uint32_t const step = step_++;
        if (step % 128 == 0) {
            camera_.set("JAILUTMode", step / 128 % 3);
        } else if (step % 32 == 1) {
            camera_.set("JAIGamma", step / 32 % 12);
        } else if (step % 8 == 2) {
            camera_.set("LUTSelector", step / 8 % 3);
        } else if (step % 2 == 0) {
            camera_.set("LUTIndex", step * 37 / 2 % 256);
        } else {
            camera_.set("LUTValue", step * 613 % 4096);
        }
    }

private:
    camera_control& camera_;
    std::uint32_t step_ = 0;
};

void configure(gvcp_client& client, camera_control& camera, probe_options const& options, std::uint16_t port) {
    auto const format = camsim::pixel_format_named(options.format);
    if (!format) {
        throw std::runtime_error("unknown pixel format " + options.format);
    }
    client.write_register(bootstrap::control_channel_privilege, camsim::control_channel::control_access);
    // The probe sends no commands while it receives.
    client.write_register(bootstrap::gvcp_configuration, bootstrap::heartbeat_disable);
    camera.set("Width", options.width);
    camera.set("Height", options.height);
    camera.set("PixelFormat", static_cast<std::uint32_t>(*format));
    camera.set("ExposureTime", 500.0);
    camera.set("AcquisitionFrameRate", options.rate);
    camera.set("ChunkModeActive", options.chunks ? 1U : 0U);
    for (camsim::chunk_kind const& kind : camsim::chunk_kinds) {
        camera.set("ChunkSelector", static_cast<std::uint32_t>(kind.which));
        camera.set("ChunkEnable", 1U);
    }
    client.write_register(bootstrap::gvsp_configuration, options.extended_ids ? bootstrap::extended_ids_enable : 0);
    client.write_register(bootstrap::stream_packet_size, options.packet_size);
    client.write_register(bootstrap::stream_destination, client.own_address());
    client.write_register(bootstrap::stream_host_port, port);
}

/// Counts a finished block and stores its payload if it is to be compared.
void finish(assembly& block, camsim::block_layout const& layout, bool keep, tally& result) {
    if (block.packets == layout.packet_count()) {
        ++result.complete;
        result.bytes += block.bytes;
        if (keep) {
            result.payloads[block.block_id] = block.payload;
        }
    } else {
        ++result.incomplete;
        result.missing_packets += layout.packet_count() - std::min(block.packets, layout.packet_count());
    }
}

void place_payload(assembly& block, camsim::block_layout const& layout, std::uint32_t packet_id,
                   std::span<std::byte const> payload) {
    std::size_t const begin = (packet_id - 1) * layout.packet_payload();
    if (packet_id >= 1 && begin + payload.size() <= block.payload.size()) {
        std::ranges::copy(payload, block.payload.begin() + static_cast<std::ptrdiff_t>(begin));
    }
}

tally grab(stream_receiver& receiver, tone_changer& changer, probe_options const& options) {
    auto const format = *camsim::pixel_format_named(options.format);
    auto const chunks = options.chunks ? camsim::chunk_set{}.set() : camsim::chunk_set{};
    std::size_t const payload_size =
        camsim::frame_bytes({options.width, options.height, 0, 0}, format) + camsim::chunk_bytes(chunks);
    auto const ids = options.extended_ids ? gvsp::id_mode::extended : gvsp::id_mode::standard;
    camsim::block_layout const layout(payload_size, options.packet_size, ids);
    bool const keep = !options.truth.empty();
    tally result;
    assembly block;
    block.payload.resize(payload_size);
    auto const handle = [&](gvsp::packet_header const& header, std::span<std::byte const> payload) {
        if (header.block_id != block.block_id) {
            if (block.block_id != 0) {
                finish(block, layout, keep, result);
            }
            block.block_id = header.block_id;
            block.packets = 0;
            block.bytes = 0;
        }
        ++block.packets;
        if (header.format == gvsp::packet_format::payload) {
            block.bytes += payload.size();
            if (keep) {
                place_payload(block, layout, header.packet_id, payload);
            }
        }
    };
    steady::time_point const end =
        steady::now() + std::chrono::duration_cast<steady::duration>(std::chrono::duration<double>(options.seconds));
    while (steady::now() < end && (options.frames == 0 || result.complete < options.frames)) {
        receiver.receive(handle);
        if (options.change_tone) {
            changer.write_next();
        }
    }
    return result;  // the last block, which may be incomplete, is not counted
}

/// Renders the payload that a line of the truth file describes: image and chunks.
void render_payload(camsim::frame_renderer& renderer, camsim::truth_frame const& frame, std::vector<std::byte>& out) {
    camsim::frame_settings const& settings = frame.settings;
    std::size_t const image_bytes = camsim::frame_bytes(settings.area, settings.format);
    out.resize(image_bytes + camsim::chunk_bytes(frame.chunks));
    renderer.prepare(settings);
    renderer.render_lines(0, settings.area.height, std::span(out).first(image_bytes));
    camsim::encode_chunks(frame.chunks, {settings.gain, settings.exposure_us, frame.ticks, settings.frame_number},
                          image_bytes, std::span(out).subspan(image_bytes));
}

/// \return the number of stored payloads that equal the truth file's byte for byte
std::uint64_t count_true_frames(tally const& result, std::string const& truth_file) {
    std::ifstream file(truth_file);
    camsim::truth_reader truth(file);
    camsim::frame_renderer renderer(truth.header().scene);
    std::vector<std::byte> expected;
    std::uint64_t equal = 0;
    while (auto const frame = truth.next()) {
        auto const payload = result.payloads.find(frame->block_id);
        if (payload == result.payloads.end()) {
            continue;
        }
        render_payload(renderer, *frame, expected);
        equal += expected == payload->second ? 1U : 0U;
    }
    return equal;
}

int run(probe_options const& options) {
    auto const address = camsim::parse_ipv4(options.camera);
    if (!address) {
        throw std::runtime_error("not a valid IPv4 address: " + options.camera);
    }
    gvcp_client client(*address);
    stream_receiver receiver(client.own_address());
    camera_control camera(client);
    configure(client, camera, options, receiver.port());
    steady::time_point const start = steady::now();
    camera.set("AcquisitionStart", 1U);
    tone_changer changer(camera);
    tally const result = grab(receiver, changer, options);
    double const seconds = std::chrono::duration<double>(steady::now() - start).count();
    camera.set("AcquisitionStop", 1U);
    client.write_register(bootstrap::control_channel_privilege, 0);
    std::printf("complete=%llu incomplete=%llu missing_packets=%llu frames_per_second=%.1f megabytes_per_second=%.1f\n",
                static_cast<unsigned long long>(result.complete), static_cast<unsigned long long>(result.incomplete),
                static_cast<unsigned long long>(result.missing_packets), static_cast<double>(result.complete) / seconds,
                static_cast<double>(result.bytes) / seconds / 1e6);
    if (options.truth.empty()) {
        return result.complete > 0 ? 0 : 1;
    }
    std::uint64_t const equal = count_true_frames(result, options.truth);
    std::printf("byte_exact=%llu of %zu\n", static_cast<unsigned long long>(equal), result.payloads.size());
    return equal == result.payloads.size() && equal > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    probe_options options;
    CLI::App app("Grabs from a camsim and prints statistics.", "camsim_stream_probe");
    app.add_option("--camera", options.camera, "Address of the camera")->capture_default_str();
    app.add_option("--width", options.width)->capture_default_str();
    app.add_option("--height", options.height)->capture_default_str();
    app.add_option("--format", options.format)->capture_default_str();
    app.add_option("--rate", options.rate, "Frames per second")->capture_default_str();
    app.add_option("--packet-size", options.packet_size)->capture_default_str();
    app.add_flag("--extended-ids", options.extended_ids);
    app.add_flag("--chunks", options.chunks, "Enable all chunks");
    app.add_flag("--change-tone", options.change_tone, "Write look-up tables and gamma continuously");
    app.add_option("--seconds", options.seconds)->capture_default_str();
    app.add_option("--frames", options.frames, "End after that many complete frames, if they arrive in time");
    app.add_option("--truth", options.truth, "Truth file of the camera to compare frames with");
    try {
        app.parse(argc, argv);
        return run(options);
    } catch (CLI::ParseError const& error) {
        return app.exit(error);
    } catch (std::exception const& error) {
        std::fprintf(stderr, "camsim_stream_probe: %s\n", error.what());
        return 1;
    }
}
