#pragma once
#include <cstdint>

/// Text, copied on construction. A null pointer makes an empty text.
class PvString {
public:
    PvString();
    PvString(char const* text);  // NOLINT(google-explicit-constructor): texts are passed where names are expected
    PvString(PvString const& other);
    PvString& operator=(PvString const& other);
    ~PvString();

    char const* GetAscii() const;  ///< zero-terminated, valid until this string changes
    uint32_t GetLength() const;    ///< bytes

    bool operator==(PvString const& other) const;
    bool operator!=(PvString const& other) const;

private:
    struct impl;
    impl* impl_;
};
