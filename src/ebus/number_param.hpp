#pragma once
/// \file
/// What integer and float features of the camera have in common. `number` is `int64_t` or `double`.

#include <PvString.h>

#include <cstdint>
#include <limits>

#include "param_provider_like.hpp"

class PvGenFloat;
class PvGenInteger;
class PvResult;

namespace Vorn::Support::MediaGrabber::Jai {

/// The SDK's feature of a kind of number.
template <typename number>
struct sdk_feature;
template <>
struct sdk_feature<int64_t> {
    using type = PvGenInteger;
};
template <>
struct sdk_feature<double> {
    using type = PvGenFloat;
};

/// A feature that is read by name; its value is remembered.
template <typename number>
class ro_number_param {
public:
    ro_number_param(param_provider_like* provider, char const* name) : provider_(provider), name_(name) {}
    virtual ~ro_number_param() = default;

protected:
    /// Reads the feature. Throws `internal_error` when it can't be read.
    number read();

    /// Stands for a value that has been neither read nor written.
    static constexpr number unknown = std::numeric_limits<number>::min();

    number last_ = unknown;  ///< last value read from or written to the device
    param_provider_like* provider_;
    PvString name_;
};

/// Limits of a feature: the device's own ("hard") ones, read once, and narrower "soft" ones. `readable` is the
/// feature's reading part.
///
/// Without limits, an integer may be anything; a float must be above zero (the smallest positive normal number), since
/// its soft minimum begins there.
template <typename readable, typename number>
class rw_number_param : public readable {
public:
    using readable::readable;

    /// The device's limits. When they can't be read: the initial value, and the next call asks again. Never throw.
    number getHardMin();
    number getHardMax();

    number getMin();
    number getMax();

    /// Narrow the soft limits. Throw `params_error` when the value contradicts the hard limits.
    void setMin(number value);
    void setMax(number value);

protected:
    /// Reads one of the device's limits once: `cached` holds `notRead` until then. The names are those in messages.
    using read_limit = PvResult (sdk_feature<number>::type::*)(number&);
    number limitOnce(number& cached, number notRead, read_limit read, char const* operation, char const* readName,
                     char const* limitName);
    /// Does `value` lie within the limits? Logs when not.
    bool isWithinLimits(number value);
    /// Writes what `valid` says may be written. Throws `external_error` otherwise, `internal_error` when the device
    /// refuses the value.
    void write(number value, bool valid);

private:
    void requireWithinHardLimits(number value);

    number hardMin_ = std::numeric_limits<number>::min();
    number hardMax_ = std::numeric_limits<number>::max();
    number softMin_ = std::numeric_limits<number>::min();
    number softMax_ = std::numeric_limits<number>::max();
};

}  // namespace Vorn::Support::MediaGrabber::Jai
