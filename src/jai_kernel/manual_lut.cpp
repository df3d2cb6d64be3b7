// SPDX-License-Identifier: MIT
#include <sys/time.h>

#include <array>
#include <cstdint>

#include "cam_proc.hpp"
#include "jai_camera/camera.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "MG_JAI_PROC";

namespace {

// The camera's LUT: 256 entries, indexed by "LUTIndex", of 12 bits each.
constexpr unsigned _S_cameraEntries = 256;
constexpr unsigned _S_cameraBits = 12;

/// A dynamic LUT of this size was measured in 12 bits; an 8-bit image needs every 16th entry of it.
constexpr unsigned _S_12BitEntries = 4096;

using camera_table = std::array<uint32_t, _S_cameraEntries>;

uint32_t _T_microseconds_now() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<uint32_t>(now.tv_sec * 1'000'000 + now.tv_usec);
}

/// Scales a value of `bits` bits to the camera's 12 bits, rounding to nearest.
uint32_t _T_to_camera_scale(uint16_t value, unsigned bits) {
    if (bits <= _S_cameraBits) {
        return uint32_t{value} << (_S_cameraBits - bits);
    }
    unsigned const excess = bits - _S_cameraBits;
    // With more than 16 excess bits, every 16-bit value rounds to 0.
    return excess > 16 ? 0 : (value + (1U << excess) / 2) >> excess;
}

/// Takes every n-th of the host's `count` entries, 256 altogether.
camera_table _T_from_host(uint16_t const* data, unsigned count, unsigned bits) {
    unsigned const step = count / _S_cameraEntries;
    camera_table table{};
    for (unsigned k = 0; k < _S_cameraEntries; ++k) {
        table[k] = _T_to_camera_scale(data[k * step], bits);
    }
    return table;
}

/// A LUT measured in 12 bits is thinned; one measured in 8 bits is copied. Entries that are missing become 0.
camera_table _T_from_dynamic(uint16_t const* data, unsigned count) {
    unsigned const step = count == _S_12BitEntries ? _S_12BitEntries / _S_cameraEntries : 1;
    camera_table table{};
    for (unsigned k = 0; k < _S_cameraEntries && k * step < count; ++k) {
        table[k] = data[k * step];
    }
    return table;
}

}  // namespace

int CCamProc::setupCamLutManual(camera* cam, bool fromDynamic, bool restartCapture) {
    uint16_t const* const data = fromDynamic ? dynLut.get() : MgGiMainCtx__GetLutDataU16();
    // cppcheck-suppress invalidPrintfArgType_p ; the argument is a pointer
    MG_LOG_I("LUT settings handler entry LUT arr %p\n", static_cast<void const*>(data));
    if (!fromDynamic) {
        if (dynLutStep != dyn_lut_step::idle) {
            MG_LOG_I("  LUT configuration from file is skipped (dynamic mode is active)\n");
            return 0;
        }
        if (data == lastLutData) {
            MG_LOG_I("  LUT configuration is skipped: no data change is detected\n");
            return 0;
        }
    }
    auto const mode = cam->ExPropertyGetLUTMode();
    if (mode == lg_error) {
        MG_LOG_W("LUT is not supported for this device\n");
        return 0;
    }
    MG_LOG_I("  current LUT state: ena %u, entries %u\n", mode == lg_lut ? 1U : 0U, _S_cameraEntries);
    if (data == nullptr) {
        return disableLut(cam, mode == lg_lut, restartCapture);
    }
    if (lutBits == 12 && isColor == 0) {
        MG_LOG_W("LUT is not supported for 12 bit pixel format\n");
        return 0;
    }
    return fromDynamic ? loadDynamicLut(cam, restartCapture) : loadHostLut(cam, data, restartCapture);
}

int CCamProc::disableLut(camera* cam, bool active, bool restartCapture) {
    mg_log_operation const mgLogFunction{"setupCamLutManual"};
    if (active) {
        if (restartCapture) {
            cam->ExStopCapture();
        }
        int const result = cam->ExPropertySetLUTMode(lg_off);
        if (restartCapture) {
            cam->ExStartCapture();
        }
        if (result != 0) {
            MG_LOG_W("can't disable LUT follow configuration: rc=%i\n", result);
            return -1;
        }
    }
    lastLutData = nullptr;
    MG_LOG_I("  LUT is disabled due to configuration\n");
    return active ? 1 : 0;
}

int CCamProc::loadHostLut(camera* cam, uint16_t const* data, bool restartCapture) {
    mg_log_operation const mgLogFunction{"setupCamLutManual"};
    unsigned const count = MgGiMainCtx__GetLutArrCount();
    unsigned const bits = MgGiMainCtx__GetLutBitSize();
    if (count < _S_cameraEntries) {
        MG_LOG_W("LUT of %u entries is refused, the camera needs at least %u\n", count, _S_cameraEntries);
        return 0;
    }
    uint32_t const start = _T_microseconds_now();
    MG_LOG_I("  check LUT value[%u] = %u\n", 10U, unsigned{data[10]});
    auto const table = _T_from_host(data, count, bits);
    lastLutData = data;
    return writeLut(cam, table.data(), _S_cameraEntries, start, restartCapture);
}

int CCamProc::loadDynamicLut(camera* cam, bool restartCapture) {
    uint32_t const start = _T_microseconds_now();
    if (dynLutEntries > 10) {
        MG_LOG_I("  check LUT value[%u] = %u\n", 10U, unsigned{dynLut[10]});
    }
    auto const table = _T_from_dynamic(dynLut.get(), dynLutEntries);
    return writeLut(cam, table.data(), dynLutMode != dyn_lut_mode::native ? _S_cameraEntries : 0, start,
                    restartCapture);
}

/// Writes the camera's 256 entries of 12 bits to each channel. A refused value leaves the LUT partly written.
/// \param configuredValues for the message
/// \param start time at which the load started, in the low 32 bits of microseconds
/// \return 1, -2 the camera refused a value
int CCamProc::writeLut(camera* cam, uint32_t const* table, unsigned configuredValues, uint32_t start,
                       bool restartCapture) {
    mg_log_operation const mgLogFunction{"setupCamLutManual"};
    if (restartCapture) {
        cam->ExStopCapture();
    }
    int const enabled = cam->ExPropertySetLUTMode(lg_lut);
    if (enabled != 0) {
        MG_LOG_W("can't enable LUT: rc = %i\n", enabled);
    }
    bool const written = writeLutChannels(cam, table);
    if (restartCapture) {
        cam->ExStartCapture();
    }
    if (!written) {
        return -2;
    }
    uint32_t const spent = _T_microseconds_now() - start;
    MG_LOG_I("LUT handler exit (nValuesDev = %u, nCfgVals = %u, time = %uus)\n", _S_cameraEntries, configuredValues,
             spent);
    return 1;
}

bool CCamProc::writeLutChannels(camera* cam, uint32_t const* table) {
    int const channels = isColor == 1 ? 3 : 1;  // R, G and B
    for (int channel = 0; channel < channels; ++channel) {
        cam->ExPropertySetLUTChannel(channel, channels);
        for (unsigned i = 0; i < _S_cameraEntries; ++i) {
            if (cam->ExPropertySetLUTValue(static_cast<int>(i), static_cast<int>(table[i])) != 0) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
