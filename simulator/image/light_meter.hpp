// SPDX-License-Identifier: MIT
#pragma once

#include "image/frame_renderer.hpp"

namespace camsim {

/// Measures the brightness of a frame as it is sent, after gain, LUT and gamma. The automatic level control uses it.
/// Renders a sample of the frame's lines. Used by one thread.
class light_meter {
public:
    explicit light_meter(scene_settings const& scene) : renderer_(scene) {}

    /// \param centre_only measures only the centre, half of the width and height
    /// \return the mean of the 12-bit values, 0 to 4095
    double mean(frame_settings const& frame, bool centre_only);

private:
    frame_renderer renderer_;
};

}  // namespace camsim
