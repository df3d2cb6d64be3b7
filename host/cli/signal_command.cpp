// SPDX-License-Identifier: MIT
#include "cli/signal_command.hpp"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "base/failures.hpp"
#include "base/file_handle.hpp"
#include "session/signal_watch.hpp"

namespace mediagrabber {

namespace {

namespace fs = std::filesystem;

// glibc 2.36 declares its wrappers of these calls for C only.
file_handle open_process(pid_t process) {
    return file_handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
}

bool send_signal(file_handle const& process, int number) {
    return syscall(SYS_pidfd_send_signal, process.get(), number, nullptr, 0) == 0;
}

fs::path directory_of(pid_t process) {
    return fs::path("/proc") / std::to_string(process);
}

/// \throws std::system_error if the process cannot be examined
bool is_mediagrabber(pid_t process) {
    std::string name = fs::read_symlink(directory_of(process) / "exe").filename().string();
    constexpr std::string_view replaced = " (deleted)";
    if (name.ends_with(replaced)) {
        name.resize(name.size() - replaced.size());
    }
    return name == "mediagrabber";
}

/// Whether a process reads a signal from a descriptor. A recording blocks its signals for that; in any other process
/// the signal could be fatal.
bool accepts(pid_t process, int number) {
    std::ifstream status(directory_of(process) / "status");
    constexpr std::string_view blocked = "SigBlk:";
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(blocked)) {
            std::uint64_t const mask = std::stoull(line.substr(blocked.size()), nullptr, 16);
            return (mask >> static_cast<unsigned>(number - 1) & 1U) != 0;
        }
    }
    return false;
}

exit_status report(std::ostream& errors, pid_t process, std::string const& what, exit_status status) {
    errors << "mediagrabber: process " << process << " " << what << '\n';
    return status;
}

/// A pidfd refers to the process from here on: if it ends meanwhile, the signal cannot reach another process with its
/// ID.
exit_status signal_process(pid_t process, int number, std::ostream& errors) {
    file_handle const held = open_process(process);
    if (!held) {
        return report(errors, process, "cannot be found: " + std::generic_category().message(errno),
                      exit_status::no_recording);
    }
    try {
        if (!is_mediagrabber(process)) {
            return report(errors, process, "is not a mediagrabber", exit_status::no_recording);
        }
    } catch (std::system_error const& error) {
        return report(errors, process, "cannot be examined: " + error.code().message(), exit_status::no_recording);
    }
    if (!accepts(process, number)) {
        return report(errors, process, "is a mediagrabber, but not recording", exit_status::no_recording);
    }
    if (!send_signal(held, number)) {
        return report(errors, process, "cannot be signalled: " + std::generic_category().message(errno),
                      exit_status::no_recording);
    }
    return exit_status::success;
}

/// \throws usage_error
pid_t process_of(std::string const& text) {
    pid_t process = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), process);
    if (error != std::errc() || end != text.data() + text.size() || process <= 0) {
        throw usage_error(text + " is not a valid process ID");
    }
    return process;
}

}  // namespace

exit_status signal_command(signal_options const& options, std::ostream& out, std::ostream& errors) {
    bool const by_process = !options.recording.is_given();
    if (options.words.size() != (by_process ? 2U : 1U)) {
        throw usage_error(by_process ? "expected signal PID REQUEST, or signal --service NAME REQUEST"
                                     : "expected one request beside --service, --socket or --name");
    }
    std::string const& name = options.words.back();
    int const number = signal_of(name);
    if (number == 0) {
        throw usage_error(name == "keep" ? "\"keep\" was renamed to \"trigger\"" : name + " is not a valid request");
    }
    if (!options.event.empty() && (by_process || name != "trigger" || !is_event(options.event))) {
        throw usage_error("--event requires the request trigger, one of --service, --socket and --name, and " +
                          std::string(event_form));
    }
    if (by_process) {
        return signal_process(process_of(options.words.front()), number, errors);
    }
    change_request request;
    request.signal = name;
    request.event = options.event;
    return send_request(control_socket_of(options.recording), request, false, out, errors);
}

}  // namespace mediagrabber
