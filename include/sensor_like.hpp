// SPDX-License-Identifier: MIT
#pragma once
#include <memory>

#include "param_provider_like.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

class property_bag;

/// The camera's region of interest.
///
/// The camera owns one object. It remembers the region that it last read from or wrote to the camera, so the getters
/// cost no network access. Used by the thread that grabs.
class sensor_like {
public:
    virtual ~sensor_like() = default;

    /// Reads the camera's current region. Call it before the getters.
    /// \throws internal_error a value can't be read
    /// \throws external_error a value does not fit 32 bits
    virtual void initialize() = 0;

    /// \name Remembered region, in pixels
    /// @{
    virtual unsigned getX() const = 0;  ///< \return horizontal offset
    virtual unsigned getY() const = 0;  ///< \return vertical offset
    virtual unsigned getW() const = 0;  ///< \return width
    virtual unsigned getH() const = 0;  ///< \return height
    /// @}

    /// \param bag holds `sensor_...` properties
    /// \return whether a configured value differs from the remembered region
    virtual bool testChanged(property_bag const& bag) = 0;

    /// Checks the complete region, then writes it; a refused region leaves the camera unchanged.
    /// \param bag holds `sensor_...` properties; absent keys keep their current value
    /// \throws params_error the region does not fit the sensor
    /// \throws external_error a value is outside the camera's range
    /// \throws internal_error the camera refuses a write
    virtual void setup(property_bag const& bag) = 0;
};

/// \param provider gives access to the camera's features; must outlive the object
/// \return region of interest of that camera
std::unique_ptr<sensor_like> Sensor__Create(param_provider_like* provider);

}  // namespace Vorn::Support::MediaGrabber::Jai
