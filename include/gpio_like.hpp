// SPDX-License-Identifier: MIT
#pragma once
#include <memory>

#include "param_provider_like.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

class property_bag;

/// One digital output line of the camera: its signal source and its inverter.
///
/// The camera owns one object per line. An object remembers what it applied last and writes only changes, so `setup`
/// is cheap to repeat. Used by the thread that grabs.
class gpio_like {
public:
    virtual ~gpio_like() = default;

    /// Applies the line's part of the configuration; absent keys leave the line unchanged.
    /// \param bag holds `line2_...` or `line3_...` properties
    /// \throws internal_error the camera is not configured yet or refuses a write
    virtual void setup(property_bag const& bag) = 0;
};

/// \name Factories
/// \param provider gives access to the camera's features; must outlive the object
/// \return the camera line "Line2" or "Line3"
/// @{
std::unique_ptr<gpio_like> Gpio__CreateLine2(param_provider_like* provider);
std::unique_ptr<gpio_like> Gpio__CreateLine3(param_provider_like* provider);
/// @}

}  // namespace Vorn::Support::MediaGrabber::Jai
