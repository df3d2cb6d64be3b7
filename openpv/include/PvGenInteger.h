// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>

#include <PvGenParameter.h>

/// An integer feature or setting. Limits may depend on other features. For lifetime and threads see `PvGenParameter`.
class PvGenInteger : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    /// \param value receives the value; unchanged on failure
    /// \return NOT_SUPPORTED if it is not readable or not available now, NOT_CONNECTED, or the camera's error
    PvResult GetValue(int64_t& value);
    /// \param value must be within the limits and a multiple of the increment above the minimum; it is not rounded
    /// \return INVALID_PARAMETER outside the limits; NOT_SUPPORTED if it is not writable, locked or not available now;
    ///     NOT_CONNECTED, or the camera's error
    PvResult SetValue(int64_t value);
    /// \param value receives the minimum; unchanged on failure
    /// \return as `GetValue`
    PvResult GetMin(int64_t& value);
    /// \param value receives the maximum; unchanged on failure
    /// \return as `GetValue`
    PvResult GetMax(int64_t& value);
    /// \param value receives the increment, 1 if there is none; unchanged on failure
    /// \return as `GetValue`
    PvResult GetIncrement(int64_t& value);
};
