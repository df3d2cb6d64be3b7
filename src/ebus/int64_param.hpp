// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>

#include "number_param.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

/// A read-only integer feature of the camera; see `ro_number_param`.
class ro_int64_param : public ro_number_param<int64_t> {
public:
    using ro_number_param::ro_number_param;

    /// \return the feature's value, read from the camera
    /// \throws internal_error it can't be read
    int64_t getValue();
    /// \return the feature's value, read from the camera
    /// \throws internal_error it can't be read
    /// \throws external_error it does not fit 32 bits
    uint32_t getValueUint32();

private:
    int64_t readFor(char const* operation);
};

/// A read-write integer feature of the camera; see `rw_number_param`. Its values have an increment, which counts from
/// the camera's minimum.
class rw_int64_param : public rw_number_param<ro_int64_param, int64_t> {
public:
    using rw_number_param::rw_number_param;

    /// \return the camera's increment; 0, any value is valid, if it can't be read. Then the next call tries again.
    int64_t getHardInc();
    /// \return active increment: the soft one, but never finer than the camera's
    int64_t getInc();
    /// Sets a coarser soft increment.
    /// \throws params_error `value` is not a multiple of the camera's increment, or equal to it
    void setInc(int64_t value);

    /// \return whether `value` is within the limits and on the increment; if not, the reason is logged
    bool validate(int64_t value);
    /// Validates the value and writes it.
    /// \throws external_error the value is not valid
    /// \throws internal_error the camera refuses it
    void setValue(int64_t value) { write(value, validate(value)); }

private:
    bool isAligned(int64_t value);

    int64_t hardInc_ = 0;
    int64_t softInc_ = 0;
};

}  // namespace Vorn::Support::MediaGrabber::Jai
