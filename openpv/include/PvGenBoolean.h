// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>

#include <PvGenParameter.h>

/// A boolean feature or setting. For lifetime and threads see `PvGenParameter`.
class PvGenBoolean : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    /// \param value receives the value; unchanged on failure
    /// \return NOT_SUPPORTED if it is not readable or not available now, NOT_CONNECTED, or the camera's error
    PvResult GetValue(bool& value);
    /// \return NOT_SUPPORTED if it is not writable, locked or not available now, NOT_CONNECTED, or the camera's error
    PvResult SetValue(bool value);
};
