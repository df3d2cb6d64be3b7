#pragma once

class PvGenParameterArray;

namespace Vorn::Support::MediaGrabber::Jai {

/// Gives parameters and feature blocks access to the connected device's features.
class param_provider_like {
public:
    virtual ~param_provider_like() = default;
    /// \return the device's features, or null when there is no configured device yet
    virtual PvGenParameterArray* getDevParams() = 0;
};

}  // namespace Vorn::Support::MediaGrabber::Jai
