#pragma once
/// \file
/// Lets go of what Aravis has of a camera that no longer answers.

#include <glib-object.h>

#include "aravis_handle.hpp"

namespace openpv {

/// Returns at once. With their last reference gone, Aravis's device and stream say goodbye to the camera and wait
/// seconds for the answer; here a thread waits for it.
void release_lost_object(object_handle<GObject> object);

}  // namespace openpv
