// SPDX-License-Identifier: MIT
#include <PvGenParameterArray.h>

#include <cmath>
#include <cstdint>
#include <optional>

#include "ebus/bool_param.hpp"
#include "ebus/double_param.hpp"
#include "ebus/int64_param.hpp"
#include "errors.hpp"
#include "grabcontrol_like.hpp"
#include "jai_property_bag/property_bag.hpp"
#include "mg_log.hpp"
#include "saturating_cast.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "JAI_GC";

namespace {

struct auto_target_param : rw_int64_param {
    explicit auto_target_param(param_provider_like* provider) : rw_int64_param(provider, "ALCReference") {}
};
struct auto_gain_min_param : rw_int64_param {
    explicit auto_gain_min_param(param_provider_like* provider)
        : rw_int64_param(provider, "AutoGainControlGainRawMin") {}
};
struct auto_gain_max_param : rw_int64_param {
    explicit auto_gain_max_param(param_provider_like* provider)
        : rw_int64_param(provider, "AutoGainControlGainRawMax") {}
};
struct auto_exposure_min_param : rw_int64_param {
    explicit auto_exposure_min_param(param_provider_like* provider)
        : rw_int64_param(provider, "AutoShutterControlExposureMin") {}
};
struct auto_exposure_max_param : rw_int64_param {
    explicit auto_exposure_max_param(param_provider_like* provider)
        : rw_int64_param(provider, "AutoShutterControlExposureMax") {}
};
struct manual_gain_param : rw_double_param {
    explicit manual_gain_param(param_provider_like* provider) : rw_double_param(provider, "Gain") {}
};
struct manual_exposure_param : rw_double_param {
    explicit manual_exposure_param(param_provider_like* provider) : rw_double_param(provider, "ExposureTime") {}
};

/// \return linear gain factor of a gain in dB, in single precision
float _T_gain_factor(double db) {
    return powf(10.0F, saturating_cast<float>(db) / 20.0F);
}

/// \return the camera's raw limit of the automatic gain, in hundredths of the linear factor, of a gain in dB
int64_t _T_raw_gain(double db) {
    return saturating_cast<int64_t>(double{_T_gain_factor(db)} * 100.0);
}

/// The configured part of the settings. Absent values leave the camera unchanged. Gain limits are raw.
struct requested_settings {
    std::optional<bool> autoGain, autoExposure, autoAreaEnable;
    std::optional<int64_t> autoTarget;
    std::optional<int64_t> autoGainMin, autoGainMax;
    std::optional<int64_t> autoExposureMin, autoExposureMax;
    std::optional<double> manualGainDb, manualExposure;

    explicit requested_settings(property_bag const& bag)
        : autoGain(value(bag, property::auto_gain, &property_bag::getBool)),
          autoExposure(value(bag, property::auto_exposure, &property_bag::getBool)),
          autoAreaEnable(value(bag, property::auto_area_enable, &property_bag::getBool)),
          autoTarget(value(bag, property::auto_target, &property_bag::getInt64)),
          autoGainMin(rawGain(value(bag, property::auto_gain_min, &property_bag::getDouble))),
          autoGainMax(rawGain(value(bag, property::auto_gain_max, &property_bag::getDouble))),
          autoExposureMin(value(bag, property::auto_exposure_min, &property_bag::getInt64)),
          autoExposureMax(value(bag, property::auto_exposure_max, &property_bag::getInt64)),
          manualGainDb(value(bag, property::manual_gain_db, &property_bag::getDouble)),
          manualExposure(value(bag, property::manual_exposure, &property_bag::getDouble)) {}

private:
    template <typename type>
    static std::optional<type> value(property_bag const& bag, property key,
                                     bool (property_bag::*get)(property, type&) const) {
        type found{};
        return (bag.*get)(key, found) ? std::optional(found) : std::nullopt;
    }
    static std::optional<int64_t> rawGain(std::optional<double> db) {
        return db ? std::optional(_T_raw_gain(*db)) : std::nullopt;
    }
};

/// Implementation of the gain and exposure control; see `grabcontrol_like`.
class grabcontrol final : public grabcontrol_like {
public:
    explicit grabcontrol(param_provider_like* provider)
        : provider_(provider),
          autoTarget_(provider),
          autoAreaEnable_(provider, "ALCAreaEnable", "On", "Off"),
          autoGain_(provider, "GainAuto", "Continuous", "Off"),
          autoGainMin_(provider),
          autoGainMax_(provider),
          autoExposure_(provider, "ExposureAuto", "Continuous", "Off"),
          autoExposureMin_(provider),
          autoExposureMax_(provider),
          manualGain_(provider),
          manualExposure_(provider) {}

    double getManualGainDb() override;
    double getManualExposure() override { return manualExposure_.getValue(); }
    void setup(property_bag const& bag) override;

private:
    void validateGainLimits(requested_settings const& settings);
    void validateExposureLimits(requested_settings const& settings);
    void writeAutomatic(requested_settings const& settings);
    void selectAnalogGain();

    param_provider_like* provider_;
    auto_target_param autoTarget_;
    bool_enum_param autoAreaEnable_;
    bool_enum_param autoGain_;
    auto_gain_min_param autoGainMin_;
    auto_gain_max_param autoGainMax_;
    bool_enum_param autoExposure_;
    auto_exposure_min_param autoExposureMin_;
    auto_exposure_max_param autoExposureMax_;
    manual_gain_param manualGain_;
    manual_exposure_param manualExposure_;
};

/// Completes all checks of limits before the first write, so that refused limits leave the camera unchanged.
void grabcontrol::setup(property_bag const& bag) {
    requested_settings const settings(bag);
    validateGainLimits(settings);
    validateExposureLimits(settings);
    writeAutomatic(settings);
    if (settings.manualGainDb) {
        selectAnalogGain();
        manualGain_.setValue(double{_T_gain_factor(*settings.manualGainDb)});
    }
    if (settings.manualExposure) {
        manualExposure_.setValue(*settings.manualExposure);
    }
}

void grabcontrol::validateGainLimits(requested_settings const& settings) {
    mg_log_operation const mgLogFunction{"setup"};
    if (settings.autoGainMin && !autoGainMin_.validate(*settings.autoGainMin)) {
        MG_LOG_W("fail: auto_gain_min_param::validate\n");
        throw params_error();
    }
    if (settings.autoGainMax && !autoGainMax_.validate(*settings.autoGainMax)) {
        MG_LOG_W("fail: auto_gain_max_param::validate\n");
        throw params_error();
    }
    if (settings.autoGainMin && settings.autoGainMax && *settings.autoGainMin >= *settings.autoGainMax) {
        MG_LOG_W("fail: params_error (min-gain:%li, max-gain:%li)\n", *settings.autoGainMin, *settings.autoGainMax);
        throw params_error();
    }
}

void grabcontrol::validateExposureLimits(requested_settings const& settings) {
    mg_log_operation const mgLogFunction{"setup"};
    if (settings.autoExposureMin && !autoExposureMin_.validate(*settings.autoExposureMin)) {
        MG_LOG_W("fail: auto_exposure_min_param::validate\n");
        throw params_error();
    }
    if (settings.autoExposureMax && !autoExposureMax_.validate(*settings.autoExposureMax)) {
        MG_LOG_W("fail: auto_exposure_max_param::validate\n");
        throw params_error();
    }
    if (settings.autoExposureMin && settings.autoExposureMax &&
        *settings.autoExposureMin >= *settings.autoExposureMax) {
        MG_LOG_W("fail: params_error (min-exposure:%li, max-exposure:%li)\n", *settings.autoExposureMin,
                 *settings.autoExposureMax);
        throw params_error();
    }
}

void grabcontrol::writeAutomatic(requested_settings const& settings) {
    auto const put = [](auto& param, auto const& value) {
        if (value) {
            param.setValue(*value);
        }
    };
    put(autoGain_, settings.autoGain);
    put(autoExposure_, settings.autoExposure);
    put(autoAreaEnable_, settings.autoAreaEnable);
    put(autoTarget_, settings.autoTarget);
    put(autoGainMin_, settings.autoGainMin);
    put(autoGainMax_, settings.autoGainMax);
    put(autoExposureMin_, settings.autoExposureMin);
    put(autoExposureMax_, settings.autoExposureMax);
}

/// "Gain" stands for several gains behind a selector. The plug-in uses the analogue gain of all channels.
void grabcontrol::selectAnalogGain() {
    // Called for every frame: the texts are allocated once.
    static PvString const _s_selector("GainSelector");
    static PvString const _s_entry("AnalogAll");
    auto* const params = provider_->getDevParams();
    if (params == nullptr) {
        MG_LOG_E("fail: param_provider_like::getDevParams\n");
        throw internal_error();
    }
    PvResult const result = params->SetEnumValue(_s_selector, _s_entry);
    if (!result.IsOK()) {
        MG_LOG_E("fail: SetEnumValue (name:GainSelector, value:AnalogAll, result:<%s>)\n",
                 result.GetCodeString().GetAscii());
        throw internal_error();
    }
}

double grabcontrol::getManualGainDb() {
    selectAnalogGain();
    return double{20.0F * log10f(saturating_cast<float>(manualGain_.getValue()))};
}

}  // namespace

std::unique_ptr<grabcontrol_like> GrabControl__Create(param_provider_like* provider) {
    try {
        return std::make_unique<grabcontrol>(provider);
    } catch (generic_error const&) {
        MG_LOG_E("fail\n");
        throw;
    }
}

}  // namespace Vorn::Support::MediaGrabber::Jai
