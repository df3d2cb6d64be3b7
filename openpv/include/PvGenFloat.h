// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>

#include <PvGenParameter.h>

/// A floating-point feature. Limits may depend on other features. For lifetime and threads see `PvGenParameter`.
class PvGenFloat : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    /// \param value receives the value; unchanged on failure
    /// \return NOT_SUPPORTED if it is not readable or not available now, NOT_CONNECTED, or the camera's error
    PvResult GetValue(double& value);
    /// \param value must be within the limits
    /// \return INVALID_PARAMETER outside the limits; NOT_SUPPORTED if it is not writable, locked or not available now;
    ///     NOT_CONNECTED, or the camera's error
    PvResult SetValue(double value);
    /// \param value receives the minimum; unchanged on failure
    /// \return as `GetValue`
    PvResult GetMin(double& value);
    /// \param value receives the maximum; unchanged on failure
    /// \return as `GetValue`
    PvResult GetMax(double& value);
};
