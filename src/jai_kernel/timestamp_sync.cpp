// SPDX-License-Identifier: MIT
#include "timestamp_sync.hpp"

#include "saturating_cast.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

namespace {

/// Widens a signed 32-bit time to the unsigned 64 bits in which timing wraps.
constexpr uint64_t _T_widen(int32_t value) {
    return static_cast<uint64_t>(int64_t{value});
}

/// Largest correction in microseconds, about 27 minutes: three quarters of the signed 32-bit range. A larger one is
/// close to an overflow.
constexpr uint32_t _S_correctionLimit = 1'610'612'736;

/// A step of the camera's timestamps is a measurement of the frame interval if it is shorter than two periods by at
/// least one part in this number.
constexpr uint64_t _S_stepTolerance = 10;

/// A delay is in time if it differs from the expected one by less than one part in this number.
constexpr uint64_t _S_paceTolerance = 10;
constexpr float _S_paceSeconds = 3.0F;  ///< for which frames may be early or late before they cause an adjustment

/// A delay of this many expected delays is gross. Gross delays cause an adjustment after one second.
constexpr uint64_t _S_grossFactor = 4;

constexpr bool _T_is_beyond_limit(int32_t correction) {
    return static_cast<uint32_t>(correction) + _S_correctionLimit > 2 * _S_correctionLimit;
}

}  // namespace

/// The latency is the time on the camera's counter between the frame's timestamp and the fetch. If the counter does not
/// count (it reads 0 or the frame's timestamp), the latency is the time since the start minus one period for each fetch
/// so far.
timestamp_sync::calibration timestamp_sync::calibrate(timestamp_settings const& settings, arrival const& frame,
                                                      uint32_t startTime, uint32_t fetchesBefore, uint64_t ticks) {
    frame_ = frame;
    uint64_t const counter =
        settings.tickFrequency == 0
            ? 0
            : saturating_cast<uint64_t>(static_cast<double>(ticks) * 1'000'000.0 / double(settings.tickFrequency));
    uint64_t const host = frame.hostTime;
    if (counter == 0 || counter == frame.blockTimestamp) {
        uint32_t const sinceStart = static_cast<uint32_t>(host) - startTime;
        latency_ = static_cast<int32_t>(sinceStart - fetchesBefore * settings.framePeriod);
    } else {
        latency_ = static_cast<int32_t>(settings.secondAdjustment + counter - frame.blockTimestamp);
    }
    base_ = cameraSideNow(settings);
    difference_ = base_ - frame.blockTimestamp;
    expectedDelay_ = host - base_;
    previousBlockTimestamp_ = frame.blockTimestamp;
    return {
        .latency = latency_, .difference = difference_, .expectedDelay = expectedDelay_, .blockTimeAtFetch = counter};
}

timestamp_sync::stamped timestamp_sync::stamp(timestamp_settings const& settings, arrival const& frame) {
    frame_ = frame;
    uint64_t const now = cameraSideNow(settings);
    stamped result{};

    if (frame.blockTimestamp < previousBlockTimestamp_) {
        result.wrapped = {.oldTimestamp = previousBlockTimestamp_, .newTimestamp = frame.blockTimestamp};
        resynchronise(settings, now);
    } else {
        // A step of nearly two periods means that a frame is missing; it is not a measurement of the interval.
        uint64_t const step = frame.blockTimestamp - previousBlockTimestamp_;
        uint64_t const expected = expectedInterval(settings);
        if (expected == 0 || step < 2 * expected - expected / _S_stepTolerance) {
            frameInterval_ = step;
        }
    }
    previousBlockTimestamp_ = frame.blockTimestamp;

    bool const unpredicted = !stamping_ || frameTimestamp_ >= frame.hostTime;
    stamping_ = true;
    if (settings.followsCamera() && unpredicted) {
        uint64_t const oldDifference = difference_;
        resynchronise(settings, now);
        result.initialised = {.oldDifference = oldDifference,
                              .newDifference = difference_,
                              .oldTimestamp = frameTimestamp_,
                              .newTimestamp = now};
        frameTimestamp_ = now;
    }
    result.timestamp = frameTimestamp_;
    return result;
}

/// Early or late frames count only after a while; until then they are taken for jitter. An adjustment for late frames
/// does not end their count, only a frame in time does: as long as frames stay late, each of them adjusts.
timestamp_sync::pace timestamp_sync::evaluatePace(timestamp_settings const& settings) {
    uint64_t const delay = frame_.hostTime - frameTimestamp_;
    uint64_t const tolerance = expectedDelay_ / _S_paceTolerance;
    uint64_t const lower = expectedDelay_ - tolerance;
    uint64_t const upper = expectedDelay_ + tolerance;
    auto const patience = saturating_cast<uint32_t>(_S_paceSeconds * settings.frameRate);
    pace result{};

    if (delay < lower) {
        if (++fastCount_ > patience) {
            result.fast = {.delay = delay, .bound = lower};
            fastCount_ = 0;
            resynchroniseToPace(settings);
        }
        return result;
    }
    if (delay < upper) {
        fastCount_ = 0;
        slowCount_ = 0;
        extraSlowCount_ = 0;
        return result;
    }
    if (++slowCount_ > patience) {
        result.slow = {.delay = delay, .bound = upper};
        resynchroniseToPace(settings);
    }
    uint64_t const gross = _S_grossFactor * expectedDelay_;
    if (delay >= gross && ++extraSlowCount_ > saturating_cast<uint32_t>(settings.frameRate)) {
        result.extraSlow = {.delay = delay, .bound = gross};
        extraSlowCount_ = 0;
        resynchroniseToPace(settings);
    }
    return result;
}

/// In camera time, the next timestamp is the camera's timestamp of this frame plus one interval, converted to host time
/// and corrected for the rate difference of the clocks since the last resynchronisation. In host time, it is one period
/// after this frame's time.
timestamp_sync::announcement timestamp_sync::announce(timestamp_settings const& settings) {
    uint64_t const now = cameraSideNow(settings);
    announcement result{};
    if (settings.followsCamera()) {
        auto const sinceBase = static_cast<double>(static_cast<int64_t>(now - base_));
        auto const correction = saturating_cast<int32_t>(sinceBase * 1e-9 * double(settings.clockCorrection));
        if (_T_is_beyond_limit(correction)) {
            result.overflow = correction;
            resynchronise(settings, now);
        }
        frameTimestamp_ = frameInterval_ + frame_.blockTimestamp + _T_widen(correction) + difference_;
    } else {
        frameTimestamp_ = now + expectedInterval(settings);
    }
    result.timestamp = frameTimestamp_;
    return result;
}

/// \return host time at which the camera exposed the current frame
uint64_t timestamp_sync::cameraSideNow(timestamp_settings const& settings) const {
    return settings.latencyAdjustment + frame_.hostTime - _T_widen(latency_);
}

/// \return the configured frame period; without one the measured interval, 0 until a step has been measured
uint64_t timestamp_sync::expectedInterval(timestamp_settings const& settings) const {
    return settings.framePeriod != 0 ? settings.framePeriod : frameInterval_;
}

void timestamp_sync::resynchronise(timestamp_settings const& settings, uint64_t base) {
    difference_ = cameraSideNow(settings) - frame_.blockTimestamp;
    base_ = base;
}

void timestamp_sync::resynchroniseToPace(timestamp_settings const& settings) {
    resynchronise(settings, frame_.hostTime);
    expectedDelay_ = _T_widen(latency_);
}

}  // namespace Vorn::Support::MediaGrabber::Jai
