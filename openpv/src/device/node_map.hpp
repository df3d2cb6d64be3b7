// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// GenICam features of a camera as parameters.

#include <memory>

#include <PvGenParameterArray.h>

#include "device/camera_link.hpp"

namespace openpv {

/// Makes the node map of a camera: a parameter array that looks up features in the GenICam XML of the session.
///
/// Parameters are created on first look-up and stay valid as long as the array, across reconnections. Each access may
/// be called from any thread, also while another thread waits for the camera. It evaluates the session's `node_graph`,
/// and checks existence, access mode, availability, lock and limits before it writes. Without a connection it returns
/// NOT_CONNECTED. The array shares ownership of the link.
std::unique_ptr<PvGenParameterArray> make_camera_parameters(std::shared_ptr<camera_link> link);

}  // namespace openpv
