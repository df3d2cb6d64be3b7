// SPDX-License-Identifier: MIT
/// \file
/// aravis_grabber ADDRESS FRAMES udp|packet SOCKET_BUFFER: grabs complete frames with Aravis's own stream, through a
/// UDP socket or a packet socket. SOCKET_BUFFER is the receive buffer of the UDP socket in bytes. For each complete
/// frame it prints the camera timestamp in ticks, the time at which the program received the frame, and the timestamp
/// that Aravis gives the frame, both in nanoseconds of UTC.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <arv.h>

namespace {

constexpr int buffer_count = 16;  // as many as the other measured programs
constexpr std::uint64_t frame_timeout_us = 5'000'000;

[[noreturn]] void fail(char const* what, GError const* error) {
    std::fprintf(stderr, "aravis_grabber: %s: %s\n", what, error != nullptr ? error->message : "unknown error");
    std::exit(EXIT_FAILURE);
}

/// \return whether the frame is complete
bool print(ArvBuffer* buffer) {
    if (arv_buffer_get_status(buffer) != ARV_BUFFER_STATUS_SUCCESS) {
        return false;
    }
    std::chrono::nanoseconds const now = std::chrono::system_clock::now().time_since_epoch();
    std::printf("%llu %lld %llu\n", static_cast<unsigned long long>(arv_buffer_get_timestamp(buffer)),
                static_cast<long long>(now.count()),
                static_cast<unsigned long long>(arv_buffer_get_system_timestamp(buffer)));
    return true;
}

ArvStream* open_stream(ArvCamera* camera, int socket_buffer) {
    GError* error = nullptr;
    ArvStream* const stream = arv_camera_create_stream(camera, nullptr, nullptr, &error);
    if (stream == nullptr) {
        fail("cannot create a stream", error);
    }
    g_object_set(stream, "socket-buffer", ARV_GV_STREAM_SOCKET_BUFFER_FIXED, "socket-buffer-size", socket_buffer,
                 nullptr);
    size_t const payload = arv_camera_get_payload(camera, &error);
    if (error != nullptr) {
        fail("cannot read the payload size", error);
    }
    for (int i = 0; i < buffer_count; ++i) {
        arv_stream_push_buffer(stream, arv_buffer_new(payload, nullptr));
    }
    return stream;
}

}  // namespace

int main(int argc, char** argv) {
    std::string_view const socket = argc == 5 ? argv[3] : "";
    if (socket != "udp" && socket != "packet") {
        std::fprintf(stderr, "usage: aravis_grabber ADDRESS FRAMES udp|packet SOCKET_BUFFER\n");
        return EXIT_FAILURE;
    }
    GError* error = nullptr;
    ArvCamera* const camera = arv_camera_new(argv[1], &error);
    if (camera == nullptr) {
        fail(argv[1], error);
    }
    arv_camera_gv_set_stream_options(
        camera, socket == "udp" ? ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED : ARV_GV_STREAM_OPTION_NONE);
    arv_camera_gv_set_packet_size_adjustment(camera, ARV_GV_PACKET_SIZE_ADJUSTMENT_NEVER);
    ArvStream* const stream = open_stream(camera, static_cast<int>(std::strtol(argv[4], nullptr, 10)));
    arv_camera_start_acquisition(camera, &error);
    if (error != nullptr) {
        fail("cannot start acquisition", error);
    }
    unsigned long const wanted = std::strtoul(argv[2], nullptr, 10);
    unsigned long frames = 0;
    while (frames < wanted) {
        ArvBuffer* const buffer = arv_stream_timeout_pop_buffer(stream, frame_timeout_us);
        if (buffer == nullptr) {
            break;
        }
        frames += print(buffer) ? 1U : 0U;
        arv_stream_push_buffer(stream, buffer);
    }
    arv_camera_stop_acquisition(camera, nullptr);
    g_object_unref(stream);
    g_object_unref(camera);
    return frames == wanted ? EXIT_SUCCESS : EXIT_FAILURE;
}
