// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>

#include <PvGenEnumEntry.h>
#include <PvGenParameter.h>

/// An enumeration feature. For lifetime and threads see `PvGenParameter`.
class PvGenEnum : public PvGenParameter {
public:
    using PvGenParameter::PvGenParameter;

    /// \param value receives the name of the current entry; unchanged on failure
    /// \return GENERIC_ERROR if the camera's value matches no entry; NOT_SUPPORTED if it is not readable or not
    ///     available now; NOT_CONNECTED, or the camera's error
    PvResult GetValue(PvString& value);
    /// \param value receives the integer value, also one that matches no entry; unchanged on failure
    /// \return NOT_SUPPORTED if it is not readable or not available now, NOT_CONNECTED, or the camera's error
    PvResult GetValue(int64_t& value);
    /// \param value name of an entry
    /// \return INVALID_PARAMETER if the entry does not exist or is not available now; NOT_SUPPORTED if the feature is
    ///     not writable, locked or not available now; NOT_CONNECTED, or the camera's error
    PvResult SetValue(PvString const& value);
    /// \param value integer value of an entry
    /// \return as above
    PvResult SetValue(int64_t value);
    /// \param count receives the number of entries that can be set now; unchanged on failure
    /// \return as `GetValue`
    PvResult GetEntriesCount(int64_t& count);
    /// \param index among the entries that can be set now, in the order of the GenICam XML
    /// \param entry receives the entry, which lives as long as the feature; unchanged on failure
    /// \return NOT_FOUND if there are fewer entries, INVALID_PARAMETER if the pointer is null; otherwise as `GetValue`
    PvResult GetEntryByIndex(int64_t index, PvGenEnumEntry const** entry);
};
