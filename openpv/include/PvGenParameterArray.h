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

/// The features of a device, or the settings of a connection, by name.
class PvGenParameterArray {
public:
    struct impl;
    explicit PvGenParameterArray(std::unique_ptr<impl> state);
    PvGenParameterArray(PvGenParameterArray const&) = delete;
    PvGenParameterArray& operator=(PvGenParameterArray const&) = delete;
    ~PvGenParameterArray();

    /// Look-ups: null when there is no such feature or it is of another kind. The feature lives as long as the array.
    PvGenParameter* Get(PvString const& name);
    PvGenInteger* GetInteger(PvString const& name);
    PvGenFloat* GetFloat(PvString const& name);
    PvGenEnum* GetEnum(PvString const& name);
    PvGenBoolean* GetBoolean(PvString const& name);
    PvGenCommand* GetCommand(PvString const& name);
    PvGenString* GetString(PvString const& name);

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

private:
    std::unique_ptr<impl> impl_;
};
