#pragma once
#include <cstdint>
#include <memory>

#include <PvResult.h>

/// One entry of an enumeration feature.
class PvGenEnumEntry {
public:
    struct impl;
    explicit PvGenEnumEntry(std::unique_ptr<impl> state);
    PvGenEnumEntry(PvGenEnumEntry const&) = delete;
    PvGenEnumEntry& operator=(PvGenEnumEntry const&) = delete;
    ~PvGenEnumEntry();

    PvResult GetName(PvString& name) const;
    PvResult GetValue(int64_t& value) const;

private:
    std::unique_ptr<impl> impl_;
};
