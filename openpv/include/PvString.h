// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>

/// Text, copied on construction. A value; not thread-safe while it is assigned to.
class PvString {
public:
    PvString();
    /// \param text zero-terminated; null is an empty text
    PvString(char const* text);  // NOLINT(google-explicit-constructor): literals are passed as names
    PvString(PvString const& other);
    PvString& operator=(PvString const& other);
    ~PvString();

    /// \return zero-terminated text, valid until this string changes; never null
    char const* GetAscii() const;
    /// \return bytes, without the terminator
    uint32_t GetLength() const;

    bool operator==(PvString const& other) const;
    bool operator!=(PvString const& other) const;

private:
    struct impl;
    impl* impl_;
};
