// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>

#include <PvString.h>

/// Outcome of an operation: a code, and a sentence that describes a failure and, where possible, its remedy. A value.
class PvResult {
public:
    struct Code {
        enum : uint32_t {
            OK = 0,
            NOT_FOUND,          ///< the device, feature, entry or chunk does not exist
            NOT_CONNECTED,      ///< the camera is disconnected or lost
            TIMEOUT,            ///< nothing arrived in time
            ABORTED,            ///< the buffer was aborted before its block arrived
            INVALID_PARAMETER,  ///< a value or an argument is not valid
            NOT_SUPPORTED,      ///< not possible with this camera, or in its current state
            GENERIC_ERROR,      ///< other failures
            MISSING_PACKETS,    ///< the block is incomplete
            BUFFER_TOO_SMALL,   ///< the block is larger than the attached memory
        };
    };

    PvResult();  ///< OK
    /// \param code described by a general sentence
    PvResult(uint32_t code);  // NOLINT(google-explicit-constructor)
    /// \param code of `Code`
    /// \param description a sentence: what failed and why
    PvResult(uint32_t code, PvString const& description);
    PvResult(PvResult const& other);
    PvResult& operator=(PvResult const& other);
    ~PvResult();

    /// \return whether the code is OK
    bool IsOK() const;
    /// \return a value of `Code`
    uint32_t GetCode() const;
    /// \return name of the code, for example "NOT_CONNECTED"; "UNKNOWN" for other values
    PvString GetCodeString() const;
    /// \return a sentence; empty for OK
    PvString GetDescription() const;

private:
    uint32_t code_;
    PvString description_;
};
