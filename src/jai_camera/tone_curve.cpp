// SPDX-License-Identifier: MIT
#include <locale.h>
#include <PvGenParameterArray.h>
#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "camera.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "JAI_CAM";

namespace {

constexpr char _S_lutMode[] = "JAILUTMode";

/// Largest difference between a requested gamma and one that the camera offers.
constexpr double _S_gammaTolerance = 0.06;

/// \return the number in an entry's name: its digits with a decimal point after the first one. "Gamma045" gives "0.45".
std::string _T_number_text(char const* name) {
    std::string number;
    for (char const* at = name; *at != '\0'; ++at) {
        if (*at >= '0' && *at <= '9') {
            number.push_back(*at);
            if (number.size() == 1) {
                number.push_back('.');
            }
        }
    }
    return number;
}

/// `strtof` with a decimal point, independent of the host's locale.
float _T_to_float(char const* text, char** end) {
    static locale_t const _s_plain = newlocale(LC_NUMERIC_MASK, "C", nullptr);
    errno = 0;
    return _s_plain == nullptr ? strtof(text, end) : strtof_l(text, end, _s_plain);
}

}  // namespace

int camera::ExPropertySetLUTMode(jai_lut_gamma_state mode) {
    if (deviceParams == nullptr) {
        MG_LOG_W("can't get dev params to change LutGamma mode\n");
        return -1;
    }
    char const* const entry = mode == lg_lut ? "LUT" : mode == lg_gamma ? "Gamma" : "Off";
    if (!deviceParams->SetEnumValue(_S_lutMode, PvString(entry)).IsOK()) {
        MG_LOG_W("fail: PvGenParameterArray::SetEnumValue (name:JAILUTMode, value:%s)\n", entry);
        return -4;
    }
    MG_LOG_I("done: PvGenParameterArray::SetEnumValue (name:JAILUTMode, value:%s)\n", entry);
    return 0;
}

jai_lut_gamma_state camera::ExPropertyGetLUTMode() {
    if (deviceParams == nullptr) {
        MG_LOG_W("can't get dev params to get LutGamma mode\n");
        return lg_error;
    }
    auto* const feature = deviceParams->GetEnum(_S_lutMode);
    if (feature == nullptr) {
        return lg_error;
    }
    PvString entry;
    if (!feature->GetValue(entry).IsOK()) {
        MG_LOG_W("can't get LutGamma mode\n");
        return lg_error;
    }
    MG_LOG_I("### get LutGamma mode: \"%s\" ###\n", entry.GetAscii());
    return entry == "Off" ? lg_off : entry == "LUT" ? lg_lut : entry == "Gamma" ? lg_gamma : lg_other;
}

int camera::ExPropertySetLUTValue(int index, int value) {
    if (deviceParams == nullptr) {
        MG_LOG_W("can't get dev params to set LUT value\n");
        return -1;
    }
    auto* const indexFeature = deviceParams->GetInteger("LUTIndex");
    auto* const valueFeature = deviceParams->GetInteger("LUTValue");
    if (indexFeature == nullptr || valueFeature == nullptr) {
        return -2;
    }
    if (!indexFeature->SetValue(index).IsOK()) {
        MG_LOG_W("can't set LUT index to %i\n", index);
        return -4;
    }
    if (!valueFeature->SetValue(value).IsOK()) {
        MG_LOG_W("can't set LUT value to %i\n", value);
        return -4;
    }
    return 0;
}

int camera::ExPropertySetLUTChannel(int channel, int channels) {
    if (channels < 2) {
        return 0;
    }
    if (deviceParams == nullptr) {
        MG_LOG_W("can't get dev params to set LUT value\n");
        return -1;
    }
    auto* const selector = deviceParams->GetEnum("LUTSelector");
    if (selector == nullptr) {
        MG_LOG_W("can't get LUTSelector parameter\n");
        return -2;
    }
    char const* const entry = channel == 0 ? "R" : channel == 1 ? "G" : "B";
    if (!selector->SetValue(PvString(entry)).IsOK()) {
        MG_LOG_W("can't set LUTSelector to \"%s\"\n", entry);
        return -4;
    }
    return 0;
}

/// The range extends from the first to the last entry, even if they are not sorted.
int camera::ExPropertyGetGammaRange(float* min, float* max) {
    if (!gammaRangeKnown) {
        if (ExPropertyGetLUTMode() == lg_error) {
            return 1;
        }
        auto* const feature = deviceParams->GetEnum(gammaFeatureName);
        if (feature == nullptr) {
            return -2;
        }
        int const result = readGammaValues(*feature);
        if (result != 0) {
            return result;
        }
        gammaMin = gammaValues.front();
        gammaMax = gammaValues.back();
        gammaRangeKnown = true;
        MG_LOG_I("### Gamma range: min=%f max=%f ###\n", double{gammaMin}, double{gammaMax});
    }
    if (min != nullptr) {
        *min = gammaMin;
    }
    if (max != nullptr) {
        *max = gammaMax;
    }
    return 0;
}

/// Fills `gammaValues` from the names of the feature's entries. A name that can't be converted ends the reading; the
/// values before it stay.
/// \return 0, -3 no entries, -5 an entry can't be read, -7 its name can't be read, -9 the name can't be converted
int camera::readGammaValues(PvGenEnum& feature) {
    mg_log_operation const mgLogFunction{"ExPropertyGetGammaRange"};
    int64_t count = 0;
    if (!feature.GetEntriesCount(count).IsOK() || count <= 0) {
        MG_LOG_W("Can't get Gamma available values\n");
        return -3;
    }
    gammaValues.clear();
    for (int64_t index = 0; index < count; ++index) {
        PvGenEnumEntry const* entry = nullptr;
        if (!feature.GetEntryByIndex(index, &entry).IsOK() || entry == nullptr) {
            return -5;
        }
        PvString name;
        if (!entry->GetName(name).IsOK() || name.GetLength() == 0) {
            return -7;
        }
        std::string const number = _T_number_text(name.GetAscii());
        char* rest = nullptr;
        float const value = _T_to_float(number.c_str(), &rest);
        int const error = errno;
        if (error != 0 || *rest != '\0') {
            MG_LOG_W("Gamma enum (idx=%u) conversion (strtof (\"%s\")) errno: '%s', errChars: '%s'\n",
                     static_cast<unsigned>(index), number.c_str(), strerror(error), rest);
            return -9;
        }
        gammaValues.push_back(value);
    }
    return 0;
}

int camera::ExPropertySetGamma(float gamma) {
    auto const mode = ExPropertyGetLUTMode();
    if (mode == lg_error) {
        return -1;
    }
    if (mode == lg_gamma) {
        if (ExPropertyGetGammaRange(nullptr, nullptr) != 0) {
            MG_LOG_W("Can't get Gamma range\n");
            return -5;
        }
        if (double{gamma} < double{gammaMin} - _S_gammaTolerance ||
            double{gamma} > double{gammaMax} + _S_gammaTolerance) {
            MG_LOG_W("Asked Gamma value %f is out of bounds [%f..%f]\n", double{gamma}, double{gammaMin},
                     double{gammaMax});
            return -6;
        }
    } else {
        MG_LOG_I("### Gamma feature is disabled ###\n");
        if (ExPropertySetLUTMode(lg_gamma) != 0) {
            MG_LOG_W("Can't enable Gamma feature\n");
            return -4;
        }
    }
    auto* const feature = deviceParams->GetEnum(gammaFeatureName);
    if (feature == nullptr) {
        MG_LOG_W("Can't get Gamma enum parameter\n");
        return -2;
    }
    int64_t count = 0;
    if (!feature->GetEntriesCount(count).IsOK() || count <= 0 || static_cast<size_t>(count) != gammaValues.size()) {
        MG_LOG_W("Can't get/convert Gamma available values: %i vs %zu\n", static_cast<int>(count), gammaValues.size());
        return -7;
    }
    int const chosen = findGammaEntry(gamma);
    if (chosen < 0) {
        return -3;
    }
    double const value{gammaValues[static_cast<size_t>(chosen)]};
    if (!feature->SetValue(int64_t{chosen}).IsOK()) {
        MG_LOG_W("Can't set Gamma value to %f\n", value);
        return -8;
    }
    MG_LOG_I("### set Gamma value: %f ###\n", value);
    return 0;
}

/// Finds the first pair of neighbouring values between which `gamma` lies. A single value has no neighbour and never
/// matches.
/// \return index of the nearer value, of the later one for a tie; -1: no pair matches
int camera::findGammaEntry(float gamma) const {
    double const requested{gamma};
    for (size_t i = 0; i + 1 < gammaValues.size(); ++i) {
        double const low{gammaValues[i]};
        double const high{gammaValues[i + 1]};
        if (low - _S_gammaTolerance <= requested && requested < high + _S_gammaTolerance) {
            return static_cast<int>(high - requested <= requested - low ? i + 1 : i);
        }
    }
    return -1;
}

int camera::ExPropertyGetGamma(float& gamma) {
    PvString mode;
    if (deviceParams == nullptr || !deviceParams->GetEnumValue(_S_lutMode, mode).IsOK()) {
        MG_LOG_W("can't get LutGamma mode\n");
        return 1;
    }
    MG_LOG_I("### get LutGamma mode: \"%s\" ###\n", mode.GetAscii());
    if (mode != "Gamma") {
        MG_LOG_I("### Gamma feature is disabled ###\n");
        return 0;
    }
    if (gammaValues.empty() && ExPropertyGetGammaRange(nullptr, nullptr) != 0) {
        MG_LOG_W("Can't get Gamma range\n");
        return -1;
    }
    auto* const feature = deviceParams->GetEnum(gammaFeatureName);
    if (feature == nullptr) {
        MG_LOG_W("Can't get Gamma enum parameter\n");
        return -2;
    }
    int64_t entry = 0;
    if (!feature->GetValue(entry).IsOK() || entry < 0 || static_cast<size_t>(entry) >= gammaValues.size()) {
        MG_LOG_W("Can't get Gamma enum value\n");
        return -3;
    }
    gamma = gammaValues[static_cast<size_t>(entry)];
    MG_LOG_I("### get Gamma value: %f (enum idx=%i)) ###\n", double{gamma}, static_cast<int>(entry));
    return 0;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
