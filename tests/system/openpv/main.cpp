/// \file
/// The tests' program. Every run has a network of its own, so that tests may run side by side. With one of two
/// options it is another application instead, in the network in which it was started: `--hold-control ID` keeps control
/// of a camera until it is ended, `--take-control ID` gives it back at once; both fail when they do not get it.

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <gmock/gmock.h>
#include <PvDevice.h>
#include <unistd.h>

#include "private_network.hpp"

namespace {

/// Keeps control until the process is ended, or the camera lost.
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

/// Takes control and gives it back.
int take_control(char const* id) {
    PvResult result;
    PvDevice* const device = PvDevice::CreateAndConnect(id, &result);
    PvDevice::Free(device);
    return result.IsOK() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string_view(argv[1]) == "--hold-control") {
        return hold_control(argv[2]);
    }
    if (argc == 3 && std::string_view(argv[1]) == "--take-control") {
        return take_control(argv[2]);
    }
    testing::InitGoogleMock(&argc, argv);
    enter_private_network();
    return RUN_ALL_TESTS();
}
