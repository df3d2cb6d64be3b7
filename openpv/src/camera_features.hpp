#pragma once
/// \file
/// A camera's GenICam features as parameters.

#include <memory>

#include <PvGenParameterArray.h>

#include "camera_link.hpp"

namespace openpv {

/// \return an array with the features of the camera behind `link`. Its parameters stay valid over a reconnection;
/// without a connection every access gives NOT_CONNECTED
std::unique_ptr<PvGenParameterArray> make_camera_parameters(std::shared_ptr<camera_link> link);

}  // namespace openpv
