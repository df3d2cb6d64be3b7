#pragma once
#include <memory>

#include "param_provider_like.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

class property_bag;

/// The camera's gain and exposure, set by hand or by its automatic level control.
class grabcontrol_like {
public:
    virtual ~grabcontrol_like() = default;
    virtual double getManualGainDb() = 0;    ///< gain in force, in dB
    virtual double getManualExposure() = 0;  ///< exposure time in force, in microseconds
    virtual void setup(property_bag const& bag) = 0;
};

std::unique_ptr<grabcontrol_like> GrabControl__Create(param_provider_like* provider);

}  // namespace Vorn::Support::MediaGrabber::Jai
