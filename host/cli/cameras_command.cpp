// SPDX-License-Identifier: MIT
#include "cli/cameras_command.hpp"

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>

#include "plugin/host_context.hpp"
#include "plugin/reported_camera.hpp"

namespace mediagrabber {

namespace {

using mg_host_api::exit_code;

/// Captures the standard output of this process during its lifetime.
class output_capture {
public:
    output_capture() : file_(memfd_create("plug-in output", MFD_CLOEXEC)), before_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        if (file_ < 0 || before_ < 0 || dup2(file_, STDOUT_FILENO) < 0) {
            throw std::system_error(errno, std::generic_category(), "the plug-in's output cannot be captured");
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
    configuration no_camera;
    no_camera.camera.active_mask = 0;
    no_camera.log.level = log_level_info;
    no_camera.log.sinks = log_sink_stdout;
    grab_progress progress;
    signal_latch latch;
    configuration_store configurations(no_camera);
    frame_receiver receiver(nullptr, 0, 0, progress);
    host_context context(configurations, latch, receiver, progress, plugin);
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

void print_json(std::ostream& out, std::vector<reported_camera> const& cameras) {
    auto list = nlohmann::ordered_json::array();
    for (auto const& camera : cameras) {
        auto properties = nlohmann::ordered_json::object();
        for (auto const& property : camera.properties) {
            properties[property.label] = property.value;
        }
        list.push_back({{"index", list.size()}, {"properties", std::move(properties)}});
    }
    out << list.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

}  // namespace

exit_status cameras_command(std::filesystem::path const& plugin_file, bool json, std::ostream& out) {
    auto const plugin = plugin_library::find(plugin_file);
    auto const found = discover(plugin);
    auto const cameras = find_reported_cameras(found.report);
    bool const none = exit_code{found.exit_code} == exit_code::no_device;
    if (!none && (exit_code{found.exit_code} != exit_code::no_target || cameras.empty())) {
        print(out, cameras);
        out << found.report << fmt::format("unexpected report of the plug-in (exit code {})\n", found.exit_code);
        return exit_status::run_failed;
    }
    if (json) {
        print_json(out, cameras);
    } else {
        print(out, cameras);
    }
    if (none) {
        out << (json ? "" : "no camera found\n");
        return exit_status::no_camera;
    }
    return exit_status::success;
}

}  // namespace mediagrabber
