#include "cameras_command.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

#include "host_context.hpp"
#include "reported_camera.hpp"

namespace mediagrabber {

namespace {

constexpr std::uint32_t report_level = 3;  ///< info
constexpr std::uint32_t to_standard_output = 1;

// Exit codes of a plug-in that found no camera, and not the one it was to look for.
constexpr std::int32_t no_device = 2;
constexpr std::int32_t no_target = 3;

/// Takes standard output of everything in this process while it lives.
class output_capture {
public:
    output_capture() : file_(memfd_create("plug-in output", MFD_CLOEXEC)), before_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        if (file_ < 0 || before_ < 0 || dup2(file_, STDOUT_FILENO) < 0) {
            throw std::system_error(errno, std::generic_category(), "the plug-in's output can't be read");
        }
    }
    ~output_capture() {
        restore();
        close(file_);
        close(before_);
    }
    output_capture(output_capture const&) = delete;
    output_capture& operator=(output_capture const&) = delete;

    std::string text() {
        restore();
        std::string all;
        std::array<char, 4096> part{};
        ssize_t got = 0;
        while ((got = pread(file_, part.data(), part.size(), static_cast<off_t>(all.size()))) > 0) {
            all.append(part.data(), static_cast<std::size_t>(got));
        }
        return all;
    }

private:
    void restore() {
        std::fflush(stdout);
        dup2(before_, STDOUT_FILENO);
    }

    int const file_;
    int const before_;
};

struct discovery {
    std::int32_t exit_code = 0;
    std::string report;
};

discovery discover(plugin_library const& plugin) {
    configuration nothing;
    nothing.active_mask = 0;
    nothing.log_level = report_level;
    nothing.log_sinks = to_standard_output;
    grab_progress progress;
    signal_latch latch;
    configuration_store configurations(nothing);
    frame_intake intake(nullptr, 0, 0, progress);
    host_context context(configurations, latch, intake, progress, plugin);
    output_capture capture;
    auto const ended = context.run();
    return {.exit_code = ended.exit_code, .report = capture.text()};
}

void print(std::ostream& out, std::vector<reported_camera> const& cameras) {
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        out << "camera " << i << '\n';
        for (auto const& property : cameras[i].properties) {
            out << "  " << property.label << ": " << property.value << '\n';
        }
    }
}

}  // namespace

exit_status cameras_command(std::filesystem::path const& plugin_file, std::ostream& out) {
    auto const plugin = plugin_library::find(plugin_file);
    auto const found = discover(plugin);
    auto const cameras = find_reported_cameras(found.report);
    print(out, cameras);
    if (found.exit_code == no_device) {
        out << "no camera found\n";
        return exit_status::no_camera;
    }
    if (found.exit_code != no_target || cameras.empty()) {
        out << found.report << "the plug-in's report (exit code " << found.exit_code << ") is not understood\n";
        return exit_status::run_failed;
    }
    return exit_status::success;
}

}  // namespace mediagrabber
