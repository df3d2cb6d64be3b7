#pragma once
#include <memory>

#include "param_provider_like.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

class property_bag;

/// One digital output line of the camera.
class gpio_like {
public:
    virtual ~gpio_like() = default;
    virtual void setup(property_bag const& bag) = 0;
};

std::unique_ptr<gpio_like> Gpio__CreateLine2(param_provider_like* provider);
std::unique_ptr<gpio_like> Gpio__CreateLine3(param_provider_like* provider);

}  // namespace Vorn::Support::MediaGrabber::Jai
