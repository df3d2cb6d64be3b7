// SPDX-License-Identifier: MIT
/// \file
/// PvString and PvResult, and the script itself.
#include <PvResult.h>
#include <PvString.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "scripted_sdk.hpp"

// ---- PvString: an empty text allocates nothing --------------------------------------------------

struct PvString::impl {
    std::string text;
};

PvString::PvString() : impl_(nullptr) {}
PvString::PvString(char const* text) : impl_(nullptr) {
    if (scripted::sdk().on_text) {
        scripted::sdk().on_text(text);
    }
    if (text != nullptr && *text != '\0') {
        impl_ = new impl{text};
    }
}
PvString::PvString(PvString const& other) : impl_(other.impl_ == nullptr ? nullptr : new impl(*other.impl_)) {}
PvString& PvString::operator=(PvString const& other) {
    if (this != &other) {
        delete impl_;
        impl_ = other.impl_ == nullptr ? nullptr : new impl(*other.impl_);
    }
    return *this;
}
PvString::~PvString() {
    delete impl_;
}
char const* PvString::GetAscii() const {
    return impl_ == nullptr ? "" : impl_->text.c_str();
}
uint32_t PvString::GetLength() const {
    return impl_ == nullptr ? 0 : static_cast<uint32_t>(impl_->text.size());
}
bool PvString::operator==(PvString const& other) const {
    return std::strcmp(GetAscii(), other.GetAscii()) == 0;
}
bool PvString::operator!=(PvString const& other) const {
    return !(*this == other);
}

// ---- PvResult -----------------------------------------------------------------------------------

PvResult::PvResult() : code_(Code::OK) {}
PvResult::PvResult(uint32_t code) : code_(code) {}
PvResult::PvResult(uint32_t code, PvString const& description) : code_(code), description_(description) {}
PvResult::PvResult(PvResult const& other) = default;
PvResult& PvResult::operator=(PvResult const& other) = default;
PvResult::~PvResult() = default;
bool PvResult::IsOK() const {
    return code_ == Code::OK;
}
uint32_t PvResult::GetCode() const {
    return code_;
}
PvString PvResult::GetCodeString() const {
    static constexpr std::array<char const*, 10> names{"OK",
                                                       "NOT_FOUND",
                                                       "NOT_CONNECTED",
                                                       "TIMEOUT",
                                                       "ABORTED",
                                                       "INVALID_PARAMETER",
                                                       "NOT_SUPPORTED",
                                                       "GENERIC_ERROR",
                                                       "MISSING_PACKETS",
                                                       "BUFFER_TOO_SMALL"};
    return code_ < names.size() ? names[code_] : "UNKNOWN";
}
PvString PvResult::GetDescription() const {
    return description_;
}

// ---- The script ---------------------------------------------------------------------------------

namespace scripted {

std::optional<int64_t> feature::entry_value(std::string const& name) const {
    auto const found = std::find_if(entries.begin(), entries.end(), [&](auto const& e) { return e.first == name; });
    return found == entries.end() ? std::nullopt : std::optional(found->second);
}

std::string feature::entry_name() const {
    auto const found = std::find_if(entries.begin(), entries.end(), [&](auto const& e) { return e.second == integer; });
    return found == entries.end() ? std::string() : found->first;
}

feature integer(int64_t value, int64_t min, int64_t max, int64_t increment) {
    feature made;
    made.type = PvGenTypeInteger;
    made.integer = value;
    made.min = min;
    made.max = max;
    made.increment = increment;
    return made;
}

feature real(double value, double min, double max) {
    feature made;
    made.type = PvGenTypeFloat;
    made.real = value;
    made.real_min = min;
    made.real_max = max;
    return made;
}

feature boolean(bool value) {
    feature made;
    made.type = PvGenTypeBoolean;
    made.flag = value;
    return made;
}

feature text(std::string value) {
    feature made;
    made.type = PvGenTypeString;
    made.text = std::move(value);
    return made;
}

feature command() {
    feature made;
    made.type = PvGenTypeCommand;
    return made;
}

feature enumeration(std::string const& current, std::vector<std::string> const& entries) {
    feature made;
    made.type = PvGenTypeEnum;
    for (auto const& entry : entries) {
        made.entries.emplace_back(entry, static_cast<int64_t>(made.entries.size()));
    }
    made.integer = made.entry_value(current).value();
    return made;
}

feature enumeration(int64_t current, std::vector<std::pair<std::string, int64_t>> entries) {
    feature made;
    made.type = PvGenTypeEnum;
    made.integer = current;
    made.entries = std::move(entries);
    return made;
}

device ordinary_camera() {
    device made;
    auto& f = made.features;
    f["WidthMax"] = integer(2464);
    f["HeightMax"] = integer(2056);
    f["OffsetX"] = integer(0, 0, 2448, 8);
    f["OffsetY"] = integer(0, 0, 2040, 2);
    f["Width"] = integer(640, 16, 2464, 8);
    f["Height"] = integer(480, 16, 2056, 2);
    f["PixelFormat"] = enumeration(PvPixelMono8, {{"Mono8", PvPixelMono8},
                                                  {"Mono12Packed", PvPixelMono12Packed},
                                                  {"Mono12", PvPixelMono12},
                                                  {"BayerRG8", PvPixelBayerRG8}});
    f["PayloadSize"] = integer(640 * 480);
    f["AcquisitionFrameRate"] = real(30.0, 0.125, 1000.0);
    f["AcquisitionStart"] = command();
    f["AcquisitionStop"] = command();
    f["GainSelector"] = enumeration("AnalogAll", {"AnalogAll", "DigitalAll"});
    f["Gain"] = real(1.0, 1.0, 16.0);
    f["ExposureTime"] = real(10'000.0, 10.0, 1'000'000.0);
    f["ALCReference"] = integer(50, 0, 100);
    f["ALCAreaEnable"] = enumeration("Off", {"Off", "On"});
    f["GainAuto"] = enumeration("Off", {"Off", "Continuous"});
    f["ExposureAuto"] = enumeration("Off", {"Off", "Continuous"});
    f["AutoGainControlGainRawMin"] = integer(100, 100, 1600);
    f["AutoGainControlGainRawMax"] = integer(1600, 100, 1600);
    f["AutoShutterControlExposureMin"] = integer(10, 10, 1'000'000);
    f["AutoShutterControlExposureMax"] = integer(1'000'000, 10, 1'000'000);
    f["LineSelector"] = enumeration("Line2", {"Line2", "Line3"});
    f["LineSource"] = enumeration("Low", {"Low", "ExposureActive"});
    f["LineInverter"] = boolean(false);
    f["ChunkModeActive"] = boolean(false);
    f["ChunkSelector"] = enumeration("GainAll", {"GainAll", "ExposureTime", "Timestamp", "ExposureStartCounter"});
    f["ChunkEnable"] = boolean(false);
    f["JAILUTMode"] = enumeration("Off", {"Off", "LUT", "Gamma"});
    f["LUTSelector"] = enumeration("R", {"R", "G", "B"});
    f["LUTIndex"] = integer(0, 0, 255);
    f["LUTValue"] = integer(0, 0, 4095);
    f["JAIGamma"] = enumeration("Gamma045", {"Gamma045", "Gamma060", "Gamma100"});
    f["DeviceTemperature"] = real(41.5, -100.0, 200.0);
    f["GevTimestampTickFrequency"] = integer(1'000'000'000);
    f["GevTimestampValue"] = integer(0);
    f["GevSCCFGUnconditionalStreaming"] = boolean(false);
    f["GevStreamChannelCount"] = integer(1);
    f["GevSCPSPacketSize"] = integer(1476);
    made.communication["AutoNegotiation"] = boolean(true);
    made.communication["DefaultPacketSize"] = integer(1476);
    return made;
}

sdk_state& sdk() {
    static sdk_state state;
    return state;
}

void reset() {
    sdk() = {};
    sdk().interfaces.emplace_back().devices.push_back(ordinary_camera());
    support::journal().clear();
    support::journal().enable(true);
}

}  // namespace scripted
