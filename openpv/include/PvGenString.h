// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>

#include <PvGenParameter.h>

/// A string feature. For lifetime and threads see `PvGenParameter`.
class PvGenString : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    /// \param value receives the value; unchanged on failure
    /// \return NOT_SUPPORTED if it is not readable or not available now, NOT_CONNECTED, or the camera's error
    PvResult GetValue(PvString& value);
};
