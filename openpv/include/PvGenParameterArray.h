// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <memory>

#include <PvGenBoolean.h>
#include <PvGenCommand.h>
#include <PvGenEnum.h>
#include <PvGenFloat.h>
#include <PvGenInteger.h>
#include <PvGenParameter.h>
#include <PvGenString.h>
#include <PvResult.h>

/// The features of a device, or the settings of its connection, by name.
///
/// Owned by its `PvDevice`. May be used from any thread.
class PvGenParameterArray {
public:
    struct impl;
    explicit PvGenParameterArray(std::unique_ptr<impl> state);
    PvGenParameterArray(PvGenParameterArray const&) = delete;
    PvGenParameterArray& operator=(PvGenParameterArray const&) = delete;
    ~PvGenParameterArray();

    /// \name Look-ups
    /// \param name of the feature, case-sensitive
    /// \return the parameter, owned by the array; null if the feature does not exist, it has another type, or, on its
    ///     first look-up, the camera is not connected
    /// @{
    PvGenParameter* Get(PvString const& name);
    PvGenInteger* GetInteger(PvString const& name);
    PvGenFloat* GetFloat(PvString const& name);
    PvGenEnum* GetEnum(PvString const& name);
    PvGenBoolean* GetBoolean(PvString const& name);
    PvGenCommand* GetCommand(PvString const& name);
    PvGenString* GetString(PvString const& name);
    /// @}

    /// \name One-step forms
    /// Look up a parameter and access it.
    /// \param name of the feature, case-sensitive
    /// \param value value to set; or receives the value, and is unchanged on failure
    /// \return NOT_FOUND if the feature does not exist or has another type; otherwise as the parameter's function
    /// @{
    PvResult GetIntegerValue(PvString const& name, int64_t& value);
    PvResult SetIntegerValue(PvString const& name, int64_t value);
    PvResult GetFloatValue(PvString const& name, double& value);
    PvResult SetFloatValue(PvString const& name, double value);
    PvResult GetEnumValue(PvString const& name, PvString& value);
    PvResult GetEnumValue(PvString const& name, int64_t& value);
    PvResult SetEnumValue(PvString const& name, PvString const& value);
    PvResult SetEnumValue(PvString const& name, int64_t value);
    PvResult GetBooleanValue(PvString const& name, bool& value);
    PvResult SetBooleanValue(PvString const& name, bool value);
    PvResult GetStringValue(PvString const& name, PvString& value);
    PvResult ExecuteCommand(PvString const& name);
    /// @}

private:
    std::unique_ptr<impl> impl_;
};
