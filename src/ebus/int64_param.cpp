// SPDX-License-Identifier: MIT
#include "int64_param.hpp"

#include <PvGenInteger.h>

#include <algorithm>

#include "errors.hpp"
#include "int128.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "JAI_PARAMS";

namespace {

/// \return whether `value` is a multiple of `step`. In 128 bits, differences of 64-bit numbers do not overflow.
bool _T_is_multiple(int128 value, int64_t step) {
    return value % step == 0;
}

}  // namespace

int64_t ro_int64_param::getValue() {
    return readFor("getValue");
}

int64_t ro_int64_param::readFor(char const* operation) {
    mg_log_operation const mgLogFunction{operation};
    int64_t const value = read();
    MG_LOG_D("done: name:%s, value:%li\n", name_.GetAscii(), value);
    return value;
}

uint32_t ro_int64_param::getValueUint32() {
    constexpr uint32_t lowest = 0;
    constexpr uint32_t highest = std::numeric_limits<uint32_t>::max();
    int64_t const value = readFor("getValueUint32");
    if (value < int64_t{lowest}) {
        MG_LOG_E("fail: static_cast (name:%s, value:%li, min-value:%u)\n", name_.GetAscii(), value, lowest);
        throw external_error();
    }
    if (value > int64_t{highest}) {
        MG_LOG_E("fail: static_cast (name:%s, value:%li, max-value:%u)\n", name_.GetAscii(), value, highest);
        throw external_error();
    }
    auto const narrowed = static_cast<uint32_t>(value);
    MG_LOG_D("done: name:%s, value:%u\n", name_.GetAscii(), narrowed);
    return narrowed;
}

int64_t rw_int64_param::getHardInc() {
    return limitOnce(hardInc_, 0, &PvGenInteger::GetIncrement, "getHardInc", "GetIncrement", "hard-inc");
}

int64_t rw_int64_param::getInc() {
    int64_t const hard = getHardInc();
    if (hard > 0) {
        return std::max(softInc_, hard);
    }
    if (hard < 0) {
        return std::min(softInc_, hard);
    }
    return softInc_;
}

/// The camera's own increment is refused, because it would not restrict anything.
void rw_int64_param::setInc(int64_t value) {
    int64_t const hard = getHardInc();
    bool const coarser = (hard > 0 && value > hard) || (hard < 0 && value < hard);
    if (hard == 0 || (coarser && _T_is_multiple(value, hard))) {
        softInc_ = value;
        return;
    }
    MG_LOG_E("fail: params_error (name:%s, value:%li, hard-inc:%li)\n", name_.GetAscii(), value, hard);
    throw params_error();
}

bool rw_int64_param::validate(int64_t value) {
    return isWithinLimits(value) && isAligned(value);
}

/// Alignment counts from the camera's minimum. If that is unknown, every value counts as aligned.
bool rw_int64_param::isAligned(int64_t value) {
    mg_log_operation const mgLogFunction{"validate"};
    int64_t const increment = getInc();
    if (increment == 0) {
        return true;
    }
    int64_t const origin = getHardMin();
    if (origin == std::numeric_limits<int64_t>::min() ||
        _T_is_multiple(static_cast<int128>(value) - origin, increment)) {
        return true;
    }
    MG_LOG_W("fail: name:%s, value:%li, hard-min:%li, soft-inc:%li\n", name_.GetAscii(), value, origin, increment);
    return false;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
