#pragma once
/// \file
/// Enumerations of the camera SDK's interface. Included by the class headers that use them.

#include <cstdint>

enum PvPayloadType : uint32_t {
    PvPayloadTypeImage = 1,
};

enum PvDeviceInfoType : uint32_t {
    PvDeviceInfoTypeGEV = 0,
};

/// Pixel formats, with the codes of the Pixel Format Naming Convention's GigE Vision values.
enum PvPixelType : uint32_t {
    PvPixelMono8 = 0x01080001,
    PvPixelMono12Packed = 0x010C0006,
    PvPixelMono12 = 0x01100005,
    PvPixelBayerRG8 = 0x01080009,
};

enum PvGenType : int32_t {
    PvGenTypeInteger = 0,
    PvGenTypeEnum = 1,
    PvGenTypeBoolean = 2,
    PvGenTypeString = 3,
    PvGenTypeCommand = 4,
    PvGenTypeFloat = 5,
};

enum PvAccessType : uint32_t {
    PvAccessControl = 0,
};
