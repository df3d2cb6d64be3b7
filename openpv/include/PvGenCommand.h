// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>

#include <PvGenParameter.h>

/// A command feature. For lifetime and threads see `PvGenParameter`.
class PvGenCommand : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    /// Starts the command. Returns when the camera has acknowledged it, which may be before the command is done.
    /// \return NOT_SUPPORTED if it is not executable, locked or not available now, NOT_CONNECTED, or the camera's error
    PvResult Execute();
};
