// SPDX-License-Identifier: MIT
/// \file
/// The test program. Each run has its own network namespace, so that tests may run in parallel. Options make it act as
/// another application, in the network in which it was started: `--hold-control ID` keeps control of a camera until it
/// is ended, `--take-control ID` releases it at once; both fail if control is refused. `--read-width ID` reads a
/// feature without control, and fails if it can also write.

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <gmock/gmock.h>
#include <PvDevice.h>
#include <unistd.h>

#include "device/camera_session.hpp"
#include "genicam/node_graph.hpp"
#include "gvcp/connection_id.hpp"
#include "private_network.hpp"

namespace {

/// Keeps control until the process is ended or the camera is lost.
int hold_control(char const* id) {
    PvResult result;
    PvDevice* const device = PvDevice::CreateAndConnect(id, &result);
    if (device == nullptr) {
        std::fprintf(stderr, "%s\n", result.GetDescription().GetAscii());
        return EXIT_FAILURE;
    }
    while (device->IsConnected()) {
        usleep(10'000);
    }
    PvDevice::Free(device);
    return EXIT_SUCCESS;
}

/// Takes control and releases it.
int take_control(char const* id) {
    PvResult result;
    PvDevice* const device = PvDevice::CreateAndConnect(id, &result);
    PvDevice::Free(device);
    return result.IsOK() ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// Reads "Width" without control.
int read_width(char const* text) {
    PvResult result;
    auto const id = openpv::parse_connection_id(text);
    auto const session = openpv::camera_session::open(
        *id, [] {}, result, openpv::session_mode::read_only);
    if (session == nullptr) {
        std::fprintf(stderr, "%s\n", result.GetDescription().GetAscii());
        return EXIT_FAILURE;
    }
    PvResult const used = session->access(
        "Width cannot be used", [](openpv::register_port& /*registers*/, openpv::node_graph& features) -> PvResult {
            openpv::node* const width = features.find_usable("Width");
            openpv::evaluation reading;
            std::int64_t value = 0;
            if (width == nullptr || !width->read(reading, value) || value <= 0) {
                return {PvResult::Code::GENERIC_ERROR, "it cannot be read"};
            }
            openpv::evaluation writing;
            return width->write(writing, value) ? PvResult(PvResult::Code::GENERIC_ERROR, "it can be written")
                                                : PvResult();
        });
    std::fprintf(stderr, "%s\n", used.GetDescription().GetAscii());
    return used.IsOK() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string_view(argv[1]) == "--hold-control") {
        return hold_control(argv[2]);
    }
    if (argc == 3 && std::string_view(argv[1]) == "--take-control") {
        return take_control(argv[2]);
    }
    if (argc == 3 && std::string_view(argv[1]) == "--read-width") {
        return read_width(argv[2]);
    }
    testing::InitGoogleMock(&argc, argv);
    enter_private_network();
    return RUN_ALL_TESTS();
}
