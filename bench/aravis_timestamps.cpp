/// \file
/// aravis_timestamps SERIAL SECONDS: grabs with Aravis's own stream and prints, for each whole frame, the camera's
/// timestamp in nanoseconds, and in nanoseconds of UTC the time that Aravis gives the frame and the time at which it
/// was there to be used.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <arv.h>

namespace {

[[noreturn]] void fail(char const* what, GError const* error) {
    std::fprintf(stderr, "aravis_timestamps: %s: %s\n", what, error != nullptr ? error->message : "no reason given");
    std::exit(EXIT_FAILURE);
}

void print(ArvBuffer* buffer) {
    if (arv_buffer_get_status(buffer) == ARV_BUFFER_STATUS_SUCCESS) {
        auto const now = std::chrono::system_clock::now().time_since_epoch();
        std::printf("%llu %llu %lld\n", static_cast<unsigned long long>(arv_buffer_get_timestamp(buffer)),
                    static_cast<unsigned long long>(arv_buffer_get_system_timestamp(buffer)),
                    static_cast<long long>(std::chrono::nanoseconds(now).count()));
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: aravis_timestamps SERIAL SECONDS\n");
        return EXIT_FAILURE;
    }
    GError* error = nullptr;
    arv_update_device_list();
    std::string id;
    for (unsigned i = 0; i < arv_get_n_devices(); ++i) {
        if (std::string(argv[1]) == arv_get_device_serial_nbr(i)) {
            id = arv_get_device_id(i);
        }
    }
    ArvCamera* const camera = arv_camera_new(id.c_str(), &error);
    if (camera == nullptr || id.empty()) {
        fail(argv[1], error);
    }
    arv_camera_gv_set_stream_options(camera, ARV_GV_STREAM_OPTION_PACKET_SOCKET_DISABLED);
    size_t const payload = arv_camera_get_payload(camera, &error);
    ArvStream* const stream = error == nullptr ? arv_camera_create_stream(camera, nullptr, nullptr, &error) : nullptr;
    if (stream == nullptr) {
        fail("no stream", error);
    }
    for (int i = 0; i < 16; ++i) {
        arv_stream_push_buffer(stream, arv_buffer_new(payload, nullptr));
    }
    arv_camera_start_acquisition(camera, &error);
    if (error != nullptr) {
        fail("no acquisition", error);
    }
    auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(std::strtod(argv[2], nullptr));
    while (std::chrono::steady_clock::now() < end) {
        if (ArvBuffer* const buffer = arv_stream_timeout_pop_buffer(stream, 1'000'000)) {
            print(buffer);
            arv_stream_push_buffer(stream, buffer);
        }
    }
    arv_camera_stop_acquisition(camera, nullptr);
    g_object_unref(stream);
    g_object_unref(camera);
}
