#pragma once
#include <cstdint>

#include <PvGenEnumEntry.h>
#include <PvGenParameter.h>

class PvGenEnum : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    PvResult GetValue(PvString& value);  ///< name of the entry in force
    PvResult GetValue(int64_t& value);
    PvResult SetValue(PvString const& value);
    PvResult SetValue(int64_t value);
    PvResult GetEntriesCount(int64_t& count);
    PvResult GetEntryByIndex(int64_t index, PvGenEnumEntry const** entry);  ///< the entry lives as long as the feature
};
