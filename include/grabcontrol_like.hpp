// SPDX-License-Identifier: MIT
#pragma once
#include <memory>

#include "param_provider_like.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

class property_bag;

/// The camera's gain and exposure time, manual or automatic.
///
/// The camera owns one object. Used by the thread that grabs; the getters read the camera, so each call costs round
/// trips on the network.
class grabcontrol_like {
public:
    virtual ~grabcontrol_like() = default;

    /// \return active gain in dB
    /// \throws internal_error the gain can't be selected or read
    virtual double getManualGainDb() = 0;

    /// \return active exposure time in microseconds
    /// \throws internal_error the exposure time can't be read
    virtual double getManualExposure() = 0;

    /// Applies the configured modes, limits and values. Checks all limits before the first write.
    /// \param bag holds `auto_...` and `manual_...` properties; absent keys leave the camera unchanged
    /// \throws params_error a limit is outside the camera's range, or a lower limit is not below its upper limit
    /// \throws external_error a value is outside the camera's range
    /// \throws internal_error the camera refuses a write
    virtual void setup(property_bag const& bag) = 0;
};

/// \param provider gives access to the camera's features; must outlive the object
/// \return gain and exposure control of that camera
std::unique_ptr<grabcontrol_like> GrabControl__Create(param_provider_like* provider);

}  // namespace Vorn::Support::MediaGrabber::Jai
