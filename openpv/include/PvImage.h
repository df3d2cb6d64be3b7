#pragma once
#include <cstdint>

#include <PvTypes.h>

/// The image in a buffer. Belongs to its `PvBuffer`.
class PvImage {
public:
    uint32_t GetWidth() const;   ///< pixels
    uint32_t GetHeight() const;  ///< lines
    uint8_t* GetDataPointer();   ///< first pixel

    static uint32_t GetPixelSize(PvPixelType type);  ///< bits a pixel, 0 for an unknown type

private:
    friend class PvBuffer;
    friend class PvStream;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
    uint8_t* data_ = nullptr;
};
