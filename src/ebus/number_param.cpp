// SPDX-License-Identifier: MIT
#include "number_param.hpp"

#include <PvGenParameterArray.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "double_param.hpp"
#include "errors.hpp"
#include "int64_param.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "JAI_PARAMS";

namespace {

/// The SDK's operations on a kind of number, and their names in messages.
template <typename number>
struct sdk_operations;

template <>
struct sdk_operations<int64_t> {
    static constexpr auto find = &PvGenParameterArray::GetInteger;
    static constexpr auto read = &PvGenParameterArray::GetIntegerValue;
    static constexpr auto write = &PvGenParameterArray::SetIntegerValue;
    static constexpr char featureName[] = "PvGenInteger";
    static constexpr char findName[] = "GetInteger";
    static constexpr char readName[] = "GetIntegerValue";
    static constexpr char writeName[] = "SetIntegerValue";
    static constexpr char writtenName[] = "PvGenInteger::SetValue";
};

template <>
struct sdk_operations<double> {
    static constexpr auto find = &PvGenParameterArray::GetFloat;
    static constexpr auto read = &PvGenParameterArray::GetFloatValue;
    static constexpr auto write = &PvGenParameterArray::SetFloatValue;
    static constexpr char featureName[] = "PvGenFloat";
    static constexpr char findName[] = "GetFloat";
    static constexpr char readName[] = "GetFloatValue";
    static constexpr char writeName[] = "SetFloatValue";
    static constexpr char writtenName[] = "PvGenParameterArray::SetFloatValue";
};

/// A number as text for messages; does not allocate.
class number_text {
public:
    explicit number_text(int64_t value) { std::snprintf(text_.data(), text_.size(), "%li", value); }
    explicit number_text(double value) { std::snprintf(text_.data(), text_.size(), "%lf", value); }
    char const* get() const { return text_.data(); }

private:
    std::array<char, 320> text_;  ///< the largest double has 309 digits, a point, 6 decimals and a sign
};

}  // namespace

template <typename number>
number ro_number_param<number>::read() {
    using sdk = sdk_operations<number>;
    auto* const params = provider_->getDevParams();
    if (params == nullptr) {
        MG_LOG_E("fail: param_provider_like::getDevParams\n");
        throw internal_error();
    }
    number value{};
    PvResult const result = (params->*sdk::read)(name_, value);
    if (!result.IsOK()) {
        MG_LOG_E("fail: PvGenParameterArray::%s (name:%s, result:<%s>)\n", sdk::readName, name_.GetAscii(),
                 result.GetCodeString().GetAscii());
        throw internal_error();
    }
    last_ = value;
    return value;
}

template <typename readable, typename number>
number rw_number_param<readable, number>::limitOnce(number& cached, number notRead, read_limit read,
                                                    char const* operation, char const* readName,
                                                    char const* limitName) {
    using sdk = sdk_operations<number>;
    mg_log_operation const mgLogFunction{operation};
    if (cached != notRead) {
        return cached;
    }
    auto* const params = this->provider_->getDevParams();
    if (params == nullptr) {
        MG_LOG_W("fail: param_provider_like::getDevParams\n");
        return cached;
    }
    auto* const feature = (params->*sdk::find)(this->name_);
    if (feature == nullptr) {
        MG_LOG_W("fail: PvGenParameterArray::%s (name:%s)\n", sdk::findName, this->name_.GetAscii());
        return cached;
    }
    number value{};
    PvResult const result = (feature->*read)(value);
    if (!result.IsOK()) {
        MG_LOG_W("fail: %s::%s (name:%s, result:<%s>)\n", sdk::featureName, readName, this->name_.GetAscii(),
                 result.GetCodeString().GetAscii());
        return cached;
    }
    cached = value;
    MG_LOG_D("done: name:%s, %s:%s\n", this->name_.GetAscii(), limitName, number_text(cached).get());
    return cached;
}

template <typename readable, typename number>
number rw_number_param<readable, number>::getHardMin() {
    return limitOnce(hardMin_, std::numeric_limits<number>::min(), &sdk_feature<number>::type::GetMin, "getHardMin",
                     "GetMin", "hard-min");
}

template <typename readable, typename number>
number rw_number_param<readable, number>::getHardMax() {
    return limitOnce(hardMax_, std::numeric_limits<number>::max(), &sdk_feature<number>::type::GetMax, "getHardMax",
                     "GetMax", "hard-max");
}

template <typename readable, typename number>
number rw_number_param<readable, number>::getMin() {
    return std::max(softMin_, getHardMin());
}

template <typename readable, typename number>
number rw_number_param<readable, number>::getMax() {
    return std::min(softMax_, getHardMax());
}

template <typename readable, typename number>
void rw_number_param<readable, number>::requireWithinHardLimits(number value) {
    number const lowest = getHardMin();
    if (value < lowest) {
        MG_LOG_E("fail: params_error (name:%s, value:%s, hard-min:%s)\n", this->name_.GetAscii(),
                 number_text(value).get(), number_text(lowest).get());
        throw params_error();
    }
    number const highest = getHardMax();
    if (value > highest) {
        MG_LOG_E("fail: params_error (name:%s, value:%s, hard-max:%s)\n", this->name_.GetAscii(),
                 number_text(value).get(), number_text(highest).get());
        throw params_error();
    }
}

template <typename readable, typename number>
void rw_number_param<readable, number>::setMin(number value) {
    requireWithinHardLimits(value);
    softMin_ = value;
}

template <typename readable, typename number>
void rw_number_param<readable, number>::setMax(number value) {
    requireWithinHardLimits(value);
    MG_LOG_D("done: name:%s, value:%s)\n", this->name_.GetAscii(), number_text(value).get());
    softMax_ = value;
}

/// Not-a-number fails both comparisons, so it is refused, too.
template <typename readable, typename number>
bool rw_number_param<readable, number>::isWithinLimits(number value) {
    mg_log_operation const mgLogFunction{"validate"};
    number const lower = getMin();
    number const upper = getMax();
    if (value >= lower && value <= upper) {
        return true;
    }
    MG_LOG_W("fail: name:%s, value:%s, soft-min:%s, soft-max:%s\n", this->name_.GetAscii(), number_text(value).get(),
             number_text(lower).get(), number_text(upper).get());
    return false;
}

template <typename readable, typename number>
void rw_number_param<readable, number>::write(number value, bool valid) {
    using sdk = sdk_operations<number>;
    if (!valid) {
        MG_LOG_E("fail: validate\n");
        throw external_error();
    }
    auto* const params = this->provider_->getDevParams();
    if (params == nullptr) {
        MG_LOG_E("fail: param_provider_like::getDevParams\n");
        throw internal_error();
    }
    PvResult const result = (params->*sdk::write)(this->name_, value);
    if (!result.IsOK()) {
        MG_LOG_E("fail: PvGenParameterArray::%s (name:%s, value:%s, result:<%s>)\n", sdk::writeName,
                 this->name_.GetAscii(), number_text(value).get(), result.GetCodeString().GetAscii());
        throw internal_error();
    }
    MG_LOG_I("done: %s (name:%s, old-value:%s, new-value:%s)\n", sdk::writtenName, this->name_.GetAscii(),
             this->last_ == this->unknown ? "unknown" : number_text(this->last_).get(), number_text(value).get());
    this->last_ = value;
}

template class ro_number_param<int64_t>;
template class ro_number_param<double>;
template class rw_number_param<ro_int64_param, int64_t>;
template class rw_number_param<ro_double_param, double>;

}  // namespace Vorn::Support::MediaGrabber::Jai
