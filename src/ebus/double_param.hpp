// SPDX-License-Identifier: MIT
#pragma once
#include "number_param.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

/// A read-only float feature of the camera; see `ro_number_param`.
class ro_double_param : public ro_number_param<double> {
public:
    using ro_number_param::ro_number_param;

    /// \return the feature's value, read from the camera
    /// \throws internal_error it can't be read
    double getValue() { return read(); }
};

/// A read-write float feature of the camera; see `rw_number_param`.
class rw_double_param : public rw_number_param<ro_double_param, double> {
public:
    using rw_number_param::rw_number_param;

    /// \return whether `value` is within the limits; if not, the reason is logged
    bool validate(double value) { return isWithinLimits(value); }
    /// Validates the value and writes it.
    /// \throws external_error the value is not valid
    /// \throws internal_error the camera refuses it
    void setValue(double value) { write(value, validate(value)); }
};

}  // namespace Vorn::Support::MediaGrabber::Jai
