#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "camera.hpp"
#include "command_line.hpp"
#include "gvcp_packet.hpp"

namespace {

/// Blocks the signals that end the program, for this thread and those it makes; they are waited for.
sigset_t block_end_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

int run_camera(camsim::camera_options const& options) {
    sigset_t const end_signals = block_end_signals();
    camsim::camera camera(options);
    camera.start();
    std::printf("camsim: ready, %s %s on %s:%u\n", options.model.c_str(), options.serial.c_str(),
                camsim::to_string(options.address).c_str(), unsigned{camsim::gvcp::port});
    std::fflush(stdout);
    int signal = 0;
    sigwait(&end_signals, &signal);
    camera.stop();
    return camera.files_failed() ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        camsim::parsed_command_line const parsed = camsim::parse_command_line(argc, argv);
        if (!parsed.request) {
            return parsed.exit_status;
        }
        if (parsed.request->print_description) {
            std::fputs(camsim::describe(parsed.request->options).c_str(), stdout);
            return EXIT_SUCCESS;
        }
        if (parsed.request->print_faults) {
            std::fputs(camsim::fault_reference().c_str(), stdout);
            return EXIT_SUCCESS;
        }
        return run_camera(parsed.request->options);
    } catch (std::exception const& error) {
        std::fprintf(stderr, "camsim: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
