// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Common parts of integer and float features. `number` is `int64_t` or `double`.

#include <PvString.h>

#include <cstdint>
#include <limits>

#include "param_provider_like.hpp"

class PvGenFloat;
class PvGenInteger;
class PvResult;

namespace Vorn::Support::MediaGrabber::Jai {

/// Maps a number type to the SDK's class for features of that type.
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

/// A camera feature that is read by name. Remembers the last value for messages.
///
/// Parameter objects live in a feature block or in the camera, and must not outlive their provider. Construction does
/// not access the camera. Each read is a round trip on the network unless the SDK caches the feature. Used by one
/// thread.
template <typename number>
class ro_number_param {
public:
    /// \param provider gives access to the camera's features
    /// \param name of the feature
    ro_number_param(param_provider_like* provider, char const* name) : provider_(provider), name_(name) {}
    virtual ~ro_number_param() = default;

protected:
    /// \return the feature's value, read from the camera
    /// \throws internal_error no camera is configured, or the read fails
    number read();

    /// Marks a value that has been neither read nor written.
    static constexpr number unknown = std::numeric_limits<number>::min();

    number last_ = unknown;  ///< last value read from or written to the camera
    param_provider_like* provider_;
    PvString name_;
};

/// A camera feature that is read and written within limits: the camera's own ("hard") ones, read once and never again,
/// and narrower "soft" ones. `readable` is the read-only class of the same feature.
///
/// If no limits are known, every integer is valid. A float must be above zero: its soft minimum starts at the smallest
/// positive normal number.
template <typename readable, typename number>
class rw_number_param : public readable {
public:
    using readable::readable;

    /// \name Hard limits
    /// \return the camera's limit; the limit of the number type if it can't be read. Then the next call tries again.
    /// @{
    number getHardMin();
    number getHardMax();
    /// @}

    /// \name Active limits
    /// \return the narrower of the soft and the hard limit
    /// @{
    number getMin();
    number getMax();
    /// @}

    /// \name Soft limits
    /// \throws params_error `value` is outside the hard limits
    /// @{
    void setMin(number value);
    void setMax(number value);
    /// @}

protected:
    using read_limit = PvResult (sdk_feature<number>::type::*)(number&);
    /// Reads one of the camera's limits once.
    /// \param cached the limit; holds `notRead` until it is read
    /// \param notRead initial value
    /// \param read the SDK's function
    /// \param operation name of the calling function, for messages
    /// \param readName name of the SDK's function, for messages
    /// \param limitName name of the limit, for messages
    /// \return the limit, or `notRead`: it can't be read
    number limitOnce(number& cached, number notRead, read_limit read, char const* operation, char const* readName,
                     char const* limitName);
    /// \return whether `value` is within the active limits; if not, the reason is logged
    bool isWithinLimits(number value);
    /// Writes a value that has been validated.
    /// \param value to write
    /// \param valid result of the validation
    /// \throws external_error `valid` is false
    /// \throws internal_error no camera is configured, or the camera refuses the value
    void write(number value, bool valid);

private:
    /// \throws params_error `value` is outside the hard limits, which is logged
    void requireWithinHardLimits(number value);

    number hardMin_ = std::numeric_limits<number>::min();
    number hardMax_ = std::numeric_limits<number>::max();
    number softMin_ = std::numeric_limits<number>::min();
    number softMax_ = std::numeric_limits<number>::max();
};

}  // namespace Vorn::Support::MediaGrabber::Jai
