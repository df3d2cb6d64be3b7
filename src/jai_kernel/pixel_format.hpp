#pragma once
#include <PvTypes.h>

#include <cstdint>

namespace Vorn::Support::MediaGrabber::Jai {

/// One pixel format of the host, the camera and the frame memory.
struct pixel_format {
    uint8_t code;             ///< the host's number of the format
    char const* name;         ///< what the host calls it
    char const* printedName;  ///< what messages call it
    PvPixelType type;         ///< what the camera calls it
    uint8_t containerBits;    ///< bits that a pixel occupies in memory
    uint8_t significantBits;
    bool fallsBackToMono8;  ///< a camera that refuses it is set to Mono8 instead

    /// Bytes of a line of `width` pixels; every line begins on a whole byte.
    constexpr uint64_t lineBytes(uint32_t width) const { return (uint64_t{containerBits} * width + 7) / 8; }
    /// Bytes of a frame.
    constexpr uint64_t frameBytes(uint32_t width, uint32_t height) const { return lineBytes(width) * height; }
};

// The host's codes.
constexpr uint8_t MONO8 = 1;
constexpr uint8_t MONO12_PACKED = 2;
constexpr uint8_t MONO12 = 3;
constexpr uint8_t BAYER_RG8 = 9;

/// \return the format of a host's code, null for a code that means none
pixel_format const* PixelFormat__Find(uint8_t code);

}  // namespace Vorn::Support::MediaGrabber::Jai
