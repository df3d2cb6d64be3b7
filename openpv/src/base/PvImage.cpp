// SPDX-License-Identifier: MIT
#include <PvImage.h>

#include <cstdint>

uint32_t PvImage::GetWidth() const {
    return width_;
}
uint32_t PvImage::GetHeight() const {
    return height_;
}
uint8_t* PvImage::GetDataPointer() {
    return data_;
}

uint32_t PvImage::GetPixelSize(PvPixelType type) {
    switch (type) {
        case PvPixelMono8:
        case PvPixelMono12Packed:
        case PvPixelMono12:
        case PvPixelBayerRG8:
            // GenICam Pixel Format Naming Convention: bits 16 to 23 of a code are the bits per pixel.
            return (static_cast<uint32_t>(type) >> 16) & 0xFFU;
    }
    return 0;
}
