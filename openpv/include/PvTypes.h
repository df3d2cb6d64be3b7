// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Enumerations of the interface. The class headers that use them include this file.

#include <cstdint>

/// Contents of a block.
enum PvPayloadType : uint32_t {
    PvPayloadTypeImage = 1,  ///< an image, with or without chunks
};

/// Transport of a device.
enum PvDeviceInfoType : uint32_t {
    PvDeviceInfoTypeGEV = 0,  ///< GigE Vision
};

/// Pixel formats, with their codes in GigE Vision (GenICam Pixel Format Naming Convention).
enum PvPixelType : uint32_t {
    PvPixelMono8 = 0x01080001,
    PvPixelMono12Packed = 0x010C0006,  ///< GigE Vision packing: two pixels in three bytes
    PvPixelMono12 = 0x01100005,        ///< 16 bits per pixel
    PvPixelBayerRG8 = 0x01080009,
};

/// Type of a parameter.
enum PvGenType : int32_t {
    PvGenTypeInteger = 0,
    PvGenTypeEnum = 1,
    PvGenTypeBoolean = 2,
    PvGenTypeString = 3,
    PvGenTypeCommand = 4,
    PvGenTypeFloat = 5,
};

/// Access to a camera.
enum PvAccessType : uint32_t {
    PvAccessControl = 0,   ///< others may read, and cannot take control
    PvAccessReadOnly = 1,  ///< reads only, also while another application has control
};
