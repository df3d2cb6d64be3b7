// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "base/ipv4.hpp"
#include "device/camera_options.hpp"

namespace camsim {

/// A simulated GigE Vision camera: registers, GenICam XML, control channel, stream and faults.
///
/// Construction opens the camera's sockets and files, start() starts its threads, stop() or destruction ends them. The
/// parts that need power are destroyed and made again by fault power_cycle. Members are called by one thread.
class camera {
public:
    /// \throws std::runtime_error (or std::system_error) if the address is not one of this host, the port is in use, or
    /// the truth file or the line trace cannot be created; the message suggests a fix
    explicit camera(camera_options const& options);
    ~camera();
    camera(camera const&) = delete;
    camera& operator=(camera const&) = delete;

    /// Starts the camera; it responds to commands from now on.
    /// \throws std::runtime_error if the control socket cannot be created
    void start();

    /// Ends all threads and writes the files completely.
    void stop();

    /// Whether the truth file or the line trace is incomplete because of a write error.
    bool files_failed() const;

private:
    struct parts;
    std::unique_ptr<parts> parts_;
};

/// \return the GenICam XML of a camera with these options
std::string camera_xml(camera_options const& options);

}  // namespace camsim
