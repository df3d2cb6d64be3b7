// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// The camera among the words of a command.

#include <string>
#include <vector>

#include "camera/camera_connection.hpp"
#include "camera/camera_finder.hpp"
#include "features/feature_access.hpp"

namespace gevctl {

/// \param name serial number, user-defined name, MAC address or IPv4 address; empty: the only camera
/// \throws failure if no camera, or several, have this name
found_camera find_camera(std::string const& name);

/// Whether the first of several words may be something else than a camera.
enum class first_word { is_camera, may_be_feature };

/// Removes the camera from the front of `words`, if it is there.
/// \return the camera that the first word names; otherwise the only camera
/// \throws failure as `find_camera`
found_camera take_camera(std::vector<std::string>& words, first_word kind);

/// A camera with its features. The GenICam XML is read from the camera.
struct opened_camera {
    explicit opened_camera(found_camera const& camera)
        : connection(camera),
          features(connection.load_xml(), connection.channel(), [this] { connection.take_control(); }) {}

    camera_connection connection;
    camera_features features;
};

/// Checks the names of features before the first access.
/// \param words what remains after `take_camera`; the first may be the wrong name of a camera
/// \throws failure if the camera does not have a feature
void require_features(opened_camera const& camera, std::vector<std::string> const& words);

}  // namespace gevctl
