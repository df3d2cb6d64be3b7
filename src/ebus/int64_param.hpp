#pragma once
#include <cstdint>

#include "number_param.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

/// A read-only integer feature of the camera.
class ro_int64_param : public ro_number_param<int64_t> {
public:
    using ro_number_param::ro_number_param;

    /// Reads the feature. Throws `internal_error` when it can't be read.
    int64_t getValue();
    /// Reads the feature as 32 bits. Throws `external_error` when the value does not fit.
    uint32_t getValueUint32();

private:
    int64_t readFor(char const* operation);
};

/// A read-write integer feature. Its values lie an increment apart, counted from the device's minimum.
class rw_int64_param : public rw_number_param<ro_int64_param, int64_t> {
public:
    using rw_number_param::rw_number_param;

    /// The device's increment; 0, any value goes, when it can't be read, and the next call asks again. Never throws.
    int64_t getHardInc();
    int64_t getInc();
    /// Coarsens the increment. Throws `params_error` when `value` is no proper multiple of the device's.
    void setInc(int64_t value);

    /// May `value` be written? Logs why not.
    bool validate(int64_t value);
    /// Validates and writes. Throws `external_error` when the value is refused here, `internal_error` when by the
    /// device.
    void setValue(int64_t value) { write(value, validate(value)); }

private:
    bool isAligned(int64_t value);

    int64_t hardInc_ = 0;
    int64_t softInc_ = 0;
};

}  // namespace Vorn::Support::MediaGrabber::Jai
