#include "signal_command.hpp"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "file_handle.hpp"
#include "signal_watch.hpp"

namespace mediagrabber {

namespace {

namespace fs = std::filesystem;

// glibc 2.36 declares its own two for C alone.
file_handle open_process(pid_t process) {
    return file_handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
}

bool send_signal(file_handle const& process, int number) {
    return syscall(SYS_pidfd_send_signal, process.get(), number, nullptr, 0) == 0;
}

fs::path directory_of(pid_t process) {
    return fs::path("/proc") / std::to_string(process);
}

/// \throws std::system_error when it can't be known
bool is_mediagrabber(pid_t process) {
    std::string name = fs::read_symlink(directory_of(process) / "exe").filename().string();
    constexpr std::string_view replaced = " (deleted)";
    if (name.ends_with(replaced)) {
        name.resize(name.size() - replaced.size());
    }
    return name == "mediagrabber";
}

/// A recording has blocked the signals that it takes, and reads them instead.
bool takes(pid_t process, int number) {
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

exit_status complain(std::ostream& complaints, pid_t process, std::string const& what, exit_status status) {
    complaints << "mediagrabber: process " << process << " " << what << '\n';
    return status;
}

}  // namespace

std::vector<named_signal> const& named_signals() {
    static std::vector<named_signal> const signals{
        {"stop", SIGTERM}, {"reload", SIGHUP}, {"lut", SIGUSR1}, {"lut12", SIGUSR2}, {"keep", keep_signal()}};
    return signals;
}

/// The process is held by a descriptor first: what is checked then and what gets the signal are one process, or none.
exit_status signal_command(pid_t process, std::string const& name, std::ostream& complaints) {
    auto const& signals = named_signals();
    auto const wanted = std::find_if(signals.begin(), signals.end(), [&](auto const& one) { return one.name == name; });
    if (wanted == signals.end()) {
        complaints << "mediagrabber: " << name << " is no request\n";
        return exit_status::usage;
    }
    file_handle const held = open_process(process);
    if (!held) {
        return complain(complaints, process, "can't be found: " + std::generic_category().message(errno),
                        exit_status::nobody_there);
    }
    try {
        if (!is_mediagrabber(process)) {
            return complain(complaints, process, "is no mediagrabber", exit_status::nobody_there);
        }
    } catch (std::system_error const& error) {
        return complain(complaints, process, "can't be examined: " + error.code().message(), exit_status::nobody_there);
    }
    if (!takes(process, wanted->number)) {
        return complain(complaints, process, "is a mediagrabber, but is not recording", exit_status::nobody_there);
    }
    if (!send_signal(held, wanted->number)) {
        return complain(complaints, process, "can't be sent a signal: " + std::generic_category().message(errno),
                        exit_status::nobody_there);
    }
    return exit_status::success;
}

}  // namespace mediagrabber
