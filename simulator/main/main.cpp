// SPDX-License-Identifier: MIT
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <vector>

#include "main/camera.hpp"
#include "main/command_line.hpp"
#include "protocol/gvcp_packet.hpp"

namespace {

/// Blocks SIGINT and SIGTERM for this thread and all threads that it creates. run_camera() waits for them.
sigset_t block_termination_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

int run_cameras(std::vector<camsim::camera_options> const& all) {
    sigset_t const termination_signals = block_termination_signals();
    std::vector<std::unique_ptr<camsim::camera>> cameras;
    for (camsim::camera_options const& options : all) {
        cameras.push_back(std::make_unique<camsim::camera>(options));
        cameras.back()->start();
        std::printf("camsim: ready, %s %s on %s:%u\n", options.model.c_str(), options.serial.c_str(),
                    camsim::to_string(options.address).c_str(), unsigned{camsim::gvcp::port});
        std::fflush(stdout);
    }
    int signal = 0;
    sigwait(&termination_signals, &signal);
    bool files_failed = false;
    for (auto const& camera : cameras) {
        camera->stop();
        files_failed = files_failed || camera->files_failed();
    }
    return files_failed ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        camsim::parsed_command_line const parsed = camsim::parse_command_line(argc, argv);
        if (!parsed.request) {
            return parsed.exit_status;
        }
        if (parsed.request->print_xml) {
            std::fputs(camsim::camera_xml(parsed.request->options).c_str(), stdout);
            return EXIT_SUCCESS;
        }
        if (parsed.request->print_faults) {
            std::fputs(camsim::fault_reference().c_str(), stdout);
            return EXIT_SUCCESS;
        }
        return run_cameras(camsim::cameras_of(*parsed.request));
    } catch (std::exception const& error) {
        std::fprintf(stderr, "camsim: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
