#pragma once
/// \file
/// Where an array's parameters come from.

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <PvGenParameter.h>
#include <PvGenParameterArray.h>
#include <PvResult.h>

/// Makes a parameter on its first look-up and keeps it from then on. Look-ups may come from any thread.
struct PvGenParameterArray::impl {
    virtual ~impl() = default;

    /// \param parameter receives the parameter, null when there is none
    /// \return NOT_FOUND, or NOT_CONNECTED when a camera cannot be asked whether it has the feature
    PvResult find(std::string const& name, PvGenParameter*& parameter);

private:
    virtual PvResult make(std::string const& name, std::unique_ptr<PvGenParameter::impl>& made) = 0;

    std::mutex mutex_;
    std::map<std::string, std::unique_ptr<PvGenParameter>> parameters_;
};
