// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Connection to one camera.

#include <memory>
#include <string>

#include "camera/camera_finder.hpp"
#include "gvcp/gvcp_channel.hpp"

namespace gevctl {

/// The control channel of a camera. It reads without control, also while another application has it, and takes control
/// for the first write. Control ends with the object; therefore `take_control` lets signals be
/// recorded (`catch_signals`) instead of ending the program.
///
/// No thread keeps control alive: each access does, and the camera waits some seconds between two.
class camera_connection {
public:
    /// \throws failure if the camera does not respond, if another camera has its address, or if another application has
    /// exclusive access
    explicit camera_connection(found_camera const& camera);
    camera_connection(camera_connection const&) = delete;
    camera_connection& operator=(camera_connection const&) = delete;
    ~camera_connection();

    found_camera const& camera() const { return camera_; }
    openpv::gvcp_channel& channel() { return *channel_; }

    /// Reads the GenICam XML from the camera.
    /// \throws failure if it cannot be read
    std::string load_xml();
    /// \throws failure at once if another application has control; the message names it
    void take_control();

    std::uint32_t read_register(std::uint32_t address);
    void write_register(std::uint32_t address, std::uint32_t value);  ///< takes control
    std::uint64_t read_register_pair(std::uint32_t address);          ///< 64 bits, the high ones first

private:
    found_camera camera_;
    std::unique_ptr<openpv::gvcp_channel> channel_;
    bool controlled_ = false;
};

}  // namespace gevctl
