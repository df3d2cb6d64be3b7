// SPDX-License-Identifier: MIT
#include <PvGenParameterArray.h>
#include <PvString.h>

#include <cstdint>
#include <optional>

#include "errors.hpp"
#include "gpio_like.hpp"
#include "jai_property_bag/property_bag.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "JAI_GPIO";

namespace {

using mg_host_api::value_of;

/// \return a line's code from the bag, of which only the low 8 bits count
std::optional<uint8_t> _T_code(property_bag const& bag, property key) {
    int64_t value = 0;
    return bag.getInt64(key, value) ? std::optional(static_cast<uint8_t>(value)) : std::nullopt;
}

/// Implementation of an output line; see `gpio_like`.
class gpio : public gpio_like {
public:
    gpio(param_provider_like* provider, char const* selector, property sourceKey, property inverterKey)
        : provider_(provider), selector_(selector), sourceKey_(sourceKey), inverterKey_(inverterKey) {}

    void setup(property_bag const& bag) override;

private:
    void selectLine(PvGenParameterArray& params);
    void writeSource(PvGenParameterArray& params, uint8_t code);
    void writeInverter(PvGenParameterArray& params, uint8_t code);

    param_provider_like* provider_;
    PvString selector_;
    property sourceKey_;
    property inverterKey_;
    uint8_t source_ = 0;    ///< code last applied, 0 none yet
    uint8_t inverter_ = 0;  ///< code last applied, 0 none yet
};

struct line2_gpio final : gpio {
    explicit line2_gpio(param_provider_like* provider)
        : gpio(provider, "Line2", property::line2_source, property::line2_inverter) {}
};
struct line3_gpio final : gpio {
    explicit line3_gpio(param_provider_like* provider)
        : gpio(provider, "Line3", property::line3_source, property::line3_inverter) {}
};

/// A change of one setting writes both.
void gpio::setup(property_bag const& bag) {
    auto const source = _T_code(bag, sourceKey_);
    auto const inverter = _T_code(bag, inverterKey_);
    bool const changed = (source && *source != source_) || (inverter && *inverter != inverter_);
    if (!changed) {
        MG_LOG_D("done: changed:false\n");
        return;
    }
    auto* const params = provider_->getDevParams();
    if (params == nullptr) {
        MG_LOG_E("fail: param_provider_like::getDevParams\n");
        throw internal_error();
    }
    selectLine(*params);
    if (source) {
        writeSource(*params, *source);
    }
    if (inverter) {
        writeInverter(*params, *inverter);
    }
}

void gpio::selectLine(PvGenParameterArray& params) {
    mg_log_operation const mgLogFunction{"setup"};
    if (!params.SetEnumValue("LineSelector", selector_).IsOK()) {
        MG_LOG_W("fail: SetEnumValue (name:LineSelector, value:%s)\n", selector_.GetAscii());
        throw internal_error();
    }
}

void gpio::writeSource(PvGenParameterArray& params, uint8_t code) {
    mg_log_operation const mgLogFunction{"setup"};
    char const* const source = code == value_of(line_source::exposure_active) ? "ExposureActive"
                               : code == value_of(line_source::low)           ? "Low"
                                                                              : nullptr;
    if (source == nullptr) {
        return;
    }
    PvResult const result = params.SetEnumValue("LineSource", PvString(source));
    if (!result.IsOK()) {
        MG_LOG_W("fail: SetEnumValue (selector:%s, name:LineSource, value:%s, result:<%s>)\n", selector_.GetAscii(),
                 source, result.GetCodeString().GetAscii());
        throw internal_error();
    }
    source_ = code;
    MG_LOG_I("done: SetEnumValue (selector:%s, name:LineSource, value:%s)\n", selector_.GetAscii(), source);
}

void gpio::writeInverter(PvGenParameterArray& params, uint8_t code) {
    mg_log_operation const mgLogFunction{"setup"};
    bool const inverted = code == value_of(line_inverter::on);
    char const* const text = inverted ? "true" : "false";
    PvResult const result = params.SetBooleanValue("LineInverter", inverted);
    if (!result.IsOK()) {
        MG_LOG_W("fail: SetBooleanValue (selector:%s, name:LineInverter, value:%s, result:<%s>)\n",
                 selector_.GetAscii(), text, result.GetCodeString().GetAscii());
        throw internal_error();
    }
    inverter_ = code;
    MG_LOG_I("done: SetBooleanValue (selector:%s, name:LineInverter, value:%s)\n", selector_.GetAscii(), text);
}

template <typename line>
std::unique_ptr<gpio_like> _T_create(param_provider_like* provider) {
    try {
        return std::make_unique<line>(provider);
    } catch (generic_error const&) {
        MG_LOG_E("fail\n");
        throw;
    }
}

}  // namespace

std::unique_ptr<gpio_like> Gpio__CreateLine2(param_provider_like* provider) {
    return _T_create<line2_gpio>(provider);
}

std::unique_ptr<gpio_like> Gpio__CreateLine3(param_provider_like* provider) {
    return _T_create<line3_gpio>(provider);
}

}  // namespace Vorn::Support::MediaGrabber::Jai
