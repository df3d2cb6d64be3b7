#include <PvGenFloat.h>

#include "PvGenParameter_impl.hpp"

namespace {

using float_limits = PvGenParameter::impl::float_limits;

PvResult get_limit(PvGenParameter::impl& parameter, double float_limits::*which, double& value) {
    float_limits limits;
    PvResult const result = parameter.get_float_limits(limits);
    if (result.IsOK()) {
        value = limits.*which;
    }
    return result;
}

}  // namespace

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
