// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>

#include <PvTypes.h>

/// The image in a buffer. Owned by its `PvBuffer`, with the same rules for threads.
class PvImage {
public:
    /// \return pixels; 0 if the last block was not complete
    uint32_t GetWidth() const;
    /// \return lines; 0 if the last block was not complete
    uint32_t GetHeight() const;
    /// \return the first pixel, in the attached memory
    uint8_t* GetDataPointer();

    /// \return bits per pixel; 0 for an unknown format
    static uint32_t GetPixelSize(PvPixelType type);

private:
    friend class PvBuffer;
    friend class PvStream;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
    uint8_t* data_ = nullptr;
};
