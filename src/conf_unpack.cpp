// SPDX-License-Identifier: MIT
#include "conf_unpack.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "jai_property_bag/property_bag.hpp"
#include "mg_host_api.hpp"
#include "mg_log.hpp"
#include "saturating_cast.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "JAI_CONF";

namespace {

using mg_host_api::value_of;

// Values that the host returns for what is not configured.
constexpr int32_t _S_noPixels = -1;
constexpr float _S_noFraction = -1.0F;
constexpr float _S_noMicroseconds = -1.0F;
constexpr float _S_noDecibels = -100.0F;

/// Names of the host's pins for messages, by pin number.
constexpr char MgCfgIoPinMapT[][132] = {"None", "Line1", "Line2", "Line3", "Line4", "Out1", "Out2",
                                        "Out3", "Out4",  "Gpio0", "Gpio1", "Gpio2", "Gpio3"};

constexpr uint32_t _S_maxIoLines = 3;  ///< that are read; the host may have more

// The host's pin numbers that the camera has lines for.
constexpr uint32_t _S_pinOut1 = 5;
constexpr uint32_t _S_pinOut2 = 6;

char const* _T_pin_name(uint32_t pin) {
    return pin < std::size(MgCfgIoPinMapT) ? MgCfgIoPinMapT[pin] : MgCfgIoPinMapT[0];
}

/// Unpacks one of the host's I/O lines. An unsupported source leaves the line unconfigured; an unsupported inverter
/// leaves the line's source configured.
void _T_unpack_io_line(property_bag& bag, uint32_t index) {
    mg_log_operation const mgLogFunction{"Conf__UnpackGpio"};
    uint32_t const pin = MgGiMainCtx__GetIoboxPin(index);
    property source{};
    property inverter{};
    if (pin == _S_pinOut1) {
        source = property::line2_source;
        inverter = property::line2_inverter;
    } else if (pin == _S_pinOut2) {
        source = property::line3_source;
        inverter = property::line3_inverter;
    } else {
        MG_LOG_W("fail: unsupported (pin:%s)\n", _T_pin_name(pin));
        return;
    }

    uint32_t const hostSource = MgGiMainCtx__GetIoboxSrc(index);
    if (hostSource == 1) {
        bag.setInt64(source, value_of(line_source::low));
    } else if (hostSource == 2 || hostSource == 3) {
        bag.setInt64(source, value_of(line_source::exposure_active));
    } else {
        MG_LOG_W("fail: unsupported (pin:%s, source:%u)\n", _T_pin_name(pin), hostSource);
        return;
    }

    uint32_t const hostInverter = MgGiMainCtx__GetIoboxInv(index);
    if (hostInverter == 1) {
        bag.setInt64(inverter, value_of(line_inverter::off));
    } else if (hostInverter == 2) {
        bag.setInt64(inverter, value_of(line_inverter::on));
    } else {
        MG_LOG_W("fail: unsupported (pin:%s, inverter:%u)\n", _T_pin_name(pin), hostInverter);
    }
}

}  // namespace

/// The host's brightness is a fraction, the camera's is in hundredths. The lower limit of a pair decides whether the
/// pair is configured.
void Conf__UnpackAutoFn(property_bag& bag) {
    float const brightness = MgGiMainCtx__GetAtbright();
    if (brightness != _S_noFraction) {
        bag.setInt64(property::auto_target, saturating_cast<int64_t>(brightness * 100.0F));
    }
    float const gainLow = MgGiMainCtx__GetGainlimsLow();
    float const gainHigh = MgGiMainCtx__GetGainlimsHigh();
    if (gainLow != _S_noDecibels) {
        bag.setDouble(property::auto_gain_min, double{gainLow});
        bag.setDouble(property::auto_gain_max, double{gainHigh});
    }
    float const exposureLow = MgGiMainCtx__GetEtlimsLow();
    float const exposureHigh = MgGiMainCtx__GetEtlimsHigh();
    if (exposureLow != _S_noMicroseconds) {
        bag.setInt64(property::auto_exposure_min, saturating_cast<int64_t>(exposureLow));
        bag.setInt64(property::auto_exposure_max, saturating_cast<int64_t>(exposureHigh));
    }
}

void Conf__UnpackManualGainDb(property_bag& bag) {
    float const gain = MgGiMainCtx__GetGainMan();
    if (gain != _S_noDecibels) {
        bag.setDouble(property::manual_gain_db, double{gain});
    }
}

void Conf__UnpackManualExposure(property_bag& bag) {
    float const exposure = MgGiMainCtx__GetExptMan();
    if (exposure != _S_noMicroseconds) {
        bag.setDouble(property::manual_exposure, double{exposure});
    }
}

void Conf__UnpackSensor(property_bag& bag) {
    int32_t const x = MgGiMainCtx__GetOffsetX();
    int32_t const y = MgGiMainCtx__GetOffsetY();
    int32_t const w = MgGiMainCtx__GetWidth();
    int32_t const h = MgGiMainCtx__GetHeight();
    auto const set = [&bag](property key, int32_t value) {
        if (value != _S_noPixels) {
            bag.setInt64(key, value);
        }
    };
    set(property::sensor_x, x);
    set(property::sensor_y, y);
    set(property::sensor_w, w);
    set(property::sensor_h, h);
}

void Conf__UnpackGpio(property_bag& bag) {
    uint32_t const count = std::min(MgGiMainCtx__GetIoboxNum(), _S_maxIoLines);
    MG_LOG_I("exec: gpio-count:%u\n", count);
    for (uint32_t index = 0; index < count; ++index) {
        _T_unpack_io_line(bag, index);
    }
}

}  // namespace Vorn::Support::MediaGrabber::Jai
