#include <PvGenInteger.h>

#include "PvGenParameter_impl.hpp"

namespace {

using integer_limits = PvGenParameter::impl::integer_limits;

PvResult get_limit(PvGenParameter::impl& parameter, int64_t integer_limits::*which, int64_t& value) {
    integer_limits limits;
    PvResult const result = parameter.get_integer_limits(limits);
    if (result.IsOK()) {
        value = limits.*which;
    }
    return result;
}

}  // namespace

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
