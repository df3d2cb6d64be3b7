// SPDX-License-Identifier: MIT
#pragma once

class PvGenParameterArray;

namespace Vorn::Support::MediaGrabber::Jai {

/// Gives parameter wrappers and feature blocks access to the connected camera's features.
class param_provider_like {
public:
    virtual ~param_provider_like() = default;

    /// Call it for each access: a reconnection replaces the features.
    /// \return the camera's features, or null: no camera is configured yet
    virtual PvGenParameterArray* getDevParams() = 0;
};

}  // namespace Vorn::Support::MediaGrabber::Jai
