#pragma once

#include "frame_renderer.hpp"

namespace camsim {

/// Measures how bright a frame is, as it is sent: behind gain, look-up table and gamma.
class light_meter {
public:
    explicit light_meter(scene_settings const& scene) : renderer_(scene) {}

    double mean(frame_settings const& frame, bool middle_only);

private:
    frame_renderer renderer_;
};

}  // namespace camsim
