// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Implementation of a parameter array: creates the parameters.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include <PvGenParameter.h>
#include <PvGenParameterArray.h>
#include <PvResult.h>

/// Creates a parameter on its first look-up and keeps it until the array is destroyed. Look-ups may come from any
/// thread; they are serialised, and do not access the camera.
struct PvGenParameterArray::impl {
    virtual ~impl() = default;

    /// \param parameter receives the parameter; unchanged if there is none
    /// \return NOT_FOUND, or NOT_CONNECTED without a camera that could be checked for the feature
    PvResult find(std::string_view name, PvGenParameter*& parameter);

private:
    /// Creates a parameter. Called once per name that exists.
    virtual PvResult make(std::string const& name, std::unique_ptr<PvGenParameter::impl>& made) = 0;

    std::mutex mutex_;  ///< guards `parameters_`
    std::map<std::string, std::unique_ptr<PvGenParameter>, std::less<>> parameters_;
};
