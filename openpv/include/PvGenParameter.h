// SPDX-License-Identifier: MIT
#pragma once
#include <memory>

#include <PvResult.h>
#include <PvTypes.h>

/// A feature of the camera's GenICam XML, or a setting of the connection. Base of the typed parameters.
///
/// Owned by its `PvGenParameterArray`, and valid as long as that, also while the camera is not connected: accesses then
/// return NOT_CONNECTED. May be used from any thread. Each access to a camera feature may take a round trip to the
/// camera, or, if the camera is being lost, 2.5 s.
class PvGenParameter {
public:
    struct impl;  ///< implementation
    explicit PvGenParameter(std::unique_ptr<impl> state);
    PvGenParameter(PvGenParameter const&) = delete;
    PvGenParameter& operator=(PvGenParameter const&) = delete;
    virtual ~PvGenParameter();

    /// \param type receives the parameter's type
    /// \return always OK
    PvResult GetType(PvGenType& type);

protected:
    std::unique_ptr<impl> impl_;
};
