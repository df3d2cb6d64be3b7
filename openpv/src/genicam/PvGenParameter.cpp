// SPDX-License-Identifier: MIT
#include <PvGenParameter.h>

#include <string>
#include <utility>

#include <PvGenBoolean.h>
#include <PvGenCommand.h>
#include <PvGenFloat.h>
#include <PvGenInteger.h>
#include <PvGenString.h>

#include "base/printable_text.hpp"
#include "genicam/PvGenParameter_impl.hpp"

namespace {

using integer_limits = PvGenParameter::impl::integer_limits;
using float_limits = PvGenParameter::impl::float_limits;

PvResult get_limit(PvGenParameter::impl& parameter, int64_t integer_limits::*which, int64_t& value) {
    integer_limits limits;
    PvResult const result = parameter.get_integer_limits(limits);
    if (result.IsOK()) {
        value = limits.*which;
    }
    return result;
}

PvResult get_limit(PvGenParameter::impl& parameter, double float_limits::*which, double& value) {
    float_limits limits;
    PvResult const result = parameter.get_float_limits(limits);
    if (result.IsOK()) {
        value = limits.*which;
    }
    return result;
}

}  // namespace

PvGenParameter::PvGenParameter(std::unique_ptr<impl> state) : impl_(std::move(state)) {}
PvGenParameter::~PvGenParameter() = default;

PvResult PvGenParameter::GetType(PvGenType& type) {
    type = impl_->type();
    return {};
}

PvResult PvGenInteger::GetValue(int64_t& value) {
    return impl_->get_integer(value);
}
PvResult PvGenInteger::SetValue(int64_t value) {
    return impl_->set_integer(value);
}
PvResult PvGenInteger::GetMin(int64_t& value) {
    return get_limit(*impl_, &integer_limits::minimum, value);
}
PvResult PvGenInteger::GetMax(int64_t& value) {
    return get_limit(*impl_, &integer_limits::maximum, value);
}
PvResult PvGenInteger::GetIncrement(int64_t& value) {
    return get_limit(*impl_, &integer_limits::increment, value);
}

PvResult PvGenFloat::GetValue(double& value) {
    return impl_->get_float(value);
}
PvResult PvGenFloat::SetValue(double value) {
    return impl_->set_float(value);
}
PvResult PvGenFloat::GetMin(double& value) {
    return get_limit(*impl_, &float_limits::minimum, value);
}
PvResult PvGenFloat::GetMax(double& value) {
    return get_limit(*impl_, &float_limits::maximum, value);
}

PvResult PvGenBoolean::GetValue(bool& value) {
    return impl_->get_boolean(value);
}
PvResult PvGenBoolean::SetValue(bool value) {
    return impl_->set_boolean(value);
}

PvResult PvGenString::GetValue(PvString& value) {
    std::string text;
    PvResult const result = impl_->get_string(text);
    if (result.IsOK()) {
        value = openpv::printable(std::move(text)).c_str();
    }
    return result;
}

PvResult PvGenCommand::Execute() {
    return impl_->execute();
}
