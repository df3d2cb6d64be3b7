// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <memory>

#include <PvResult.h>

/// One entry of an enumeration feature. Immutable; owned by the feature, and valid as long as it.
class PvGenEnumEntry {
public:
    struct impl;
    explicit PvGenEnumEntry(std::unique_ptr<impl> state);
    PvGenEnumEntry(PvGenEnumEntry const&) = delete;
    PvGenEnumEntry& operator=(PvGenEnumEntry const&) = delete;
    ~PvGenEnumEntry();

    /// \param name receives the entry's name
    /// \return always OK
    PvResult GetName(PvString& name) const;
    /// \param value receives the entry's integer value
    /// \return always OK
    PvResult GetValue(int64_t& value) const;

private:
    std::unique_ptr<impl> impl_;
};
