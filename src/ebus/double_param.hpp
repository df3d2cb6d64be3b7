#pragma once
#include "number_param.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

/// A read-only float feature of the camera.
class ro_double_param : public ro_number_param<double> {
public:
    using ro_number_param::ro_number_param;

    /// Reads the feature. Throws `internal_error` when it can't be read.
    double getValue() { return read(); }
};

/// A read-write float feature.
class rw_double_param : public rw_number_param<ro_double_param, double> {
public:
    using rw_number_param::rw_number_param;

    /// May `value` be written? Logs why not.
    bool validate(double value) { return isWithinLimits(value); }
    /// Validates and writes. Throws `external_error` when the value is refused here, `internal_error` when by the
    /// device.
    void setValue(double value) { write(value, validate(value)); }
};

}  // namespace Vorn::Support::MediaGrabber::Jai
