#pragma once
#include <cstdint>

#include <PvString.h>

/// How an operation ended: a code, and a description that says what could not be done.
class PvResult {
public:
    struct Code {
        enum : uint32_t {
            OK = 0,
            NOT_FOUND,
            NOT_CONNECTED,
            TIMEOUT,
            ABORTED,
            INVALID_PARAMETER,
            NOT_SUPPORTED,
            GENERIC_ERROR,
            MISSING_PACKETS,
            BUFFER_TOO_SMALL,
        };
    };

    PvResult();                                            ///< OK
    PvResult(uint32_t code);                               // NOLINT(google-explicit-constructor)
    PvResult(uint32_t code, PvString const& description);  ///< used by the layer itself
    PvResult(PvResult const& other);
    PvResult& operator=(PvResult const& other);
    ~PvResult();

    bool IsOK() const;
    uint32_t GetCode() const;
    PvString GetCodeString() const;   ///< the code's name, for example "NOT_CONNECTED"
    PvString GetDescription() const;  ///< a sentence, empty for OK

private:
    uint32_t code_;
    PvString description_;
};
