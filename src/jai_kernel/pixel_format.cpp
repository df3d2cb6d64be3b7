// SPDX-License-Identifier: MIT
#include "pixel_format.hpp"

#include <PvGenParameterArray.h>

#include <algorithm>
#include <iterator>

#include "cam_proc.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

using mg_host_api::param_number;

// The host interface has two names for the Bayer format: one for the codec, one for messages.
constexpr pixel_format _S_formats[] = {
    {.code = format_code::Mono8,
     .name = "MONO8T",
     .printedName = "MONO8T",
     .type = PvPixelMono8,
     .containerBits = 8,
     .significantBits = 8,
     .filter = color_filter::none,
     .fallsBackToMono8 = false},
    {.code = format_code::Mono12Packed,
     .name = "MONO12PT",
     .printedName = "MONO12PT",
     .type = PvPixelMono12Packed,
     .containerBits = 12,
     .significantBits = 12,
     .filter = color_filter::none,
     .fallsBackToMono8 = true},
    {.code = format_code::Mono12,
     .name = "MONO12T",
     .printedName = "MONO12T",
     .type = PvPixelMono12,
     .containerBits = 16,
     .significantBits = 12,
     .filter = color_filter::none,
     .fallsBackToMono8 = true},
    {.code = format_code::BayerRG8,
     .name = "BayerRG8T",
     .printedName = "Bayer8T",
     .type = PvPixelBayerRG8,
     .containerBits = 8,
     .significantBits = 8,
     .filter = color_filter::bayerRg,
     .fallsBackToMono8 = false},
};

/// Sets `format` on the camera, or Mono8 if the camera refuses it and a fallback is allowed.
/// \param code receives the code of Mono8 after a fallback
/// \return the active format, or null: the camera refuses it
pixel_format const* _T_set_on_camera(PvGenParameterArray* params, pixel_format const* format, unsigned char* code) {
    mg_log_operation const mgLogFunction{"ProcSetPixelFormat"};
    while (params == nullptr || !params->SetEnumValue("PixelFormat", int64_t{format->type}).IsOK()) {
        if (!format->fallsBackToMono8) {
            MG_LOG_W("The pixel format '%s' is not supported\n", format->printedName);
            return nullptr;
        }
        auto const* const mono8 = PixelFormat__Find(format_code::Mono8);
        MG_LOG_W("The pixel format '%s' is not supported, forced to '%s'\n", format->name, mono8->name);
        format = mono8;
        *code = value_of(format_code::Mono8);
    }
    return format;
}

template <typename type>
void _T_put(type* output, type value) {
    if (output != nullptr) {
        *output = value;
    }
}

}  // namespace

pixel_format const* PixelFormat__Find(uint8_t code) {
    auto const* const found = std::find_if(std::begin(_S_formats), std::end(_S_formats),
                                           [code](auto const& f) { return value_of(f.code) == code; });
    return found == std::end(_S_formats) ? nullptr : found;
}

int CCamProc::ProcSetPixelFormat(camera* cam, PvGenParameterArray* params, unsigned char* code,
                                 unsigned char* containerBitsOut, unsigned char* significantBitsOut,
                                 PvPixelType* typeOut, char const** nameOut) {
    auto const* format = PixelFormat__Find(*code);
    if (format == nullptr) {
        return -1;
    }
    if (cam != nullptr) {
        format = _T_set_on_camera(params, format, code);
        if (format == nullptr) {
            return -1;
        }
    }
    if (format->filter == color_filter::bayerRg) {
        MG_LOG_I("BAYER_TILE_MAPPING value: meta codec chosen '%s'\n", format->name);
    }
    _T_put(containerBitsOut, format->containerBits);
    _T_put(significantBitsOut, format->significantBits);
    _T_put(typeOut, format->type);
    _T_put(nameOut, format->name);
    if (cam != nullptr) {
        triggerFlag = 0;
        MgSc__SetParamVal(value_of(param_number::format_name), format->name, uint32_t{format->significantBits});
        MG_LOG_I("Configure pixel format: 0x%08X\n", static_cast<unsigned>(format->type));
    }
    MG_LOG_I("Use pixel format: '%s'\n", format->printedName);
    return 0;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
