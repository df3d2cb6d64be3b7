#pragma once
#include <memory>

#include "param_provider_like.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

class property_bag;

/// The camera's region of interest, in pixels.
class sensor_like {
public:
    virtual ~sensor_like() = default;
    virtual void initialize() = 0;  ///< reads the region that the camera has now
    virtual unsigned getX() const = 0;
    virtual unsigned getY() const = 0;
    virtual unsigned getW() const = 0;
    virtual unsigned getH() const = 0;
    virtual bool testChanged(property_bag const& bag) = 0;  ///< would `setup` change the region?
    virtual void setup(property_bag const& bag) = 0;        ///< checks the region as a whole, then writes it
};

std::unique_ptr<sensor_like> Sensor__Create(param_provider_like* provider);

}  // namespace Vorn::Support::MediaGrabber::Jai
