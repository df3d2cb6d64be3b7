#include "timestamp_sync.hpp"

#include "saturating_cast.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

namespace {

/// Widens a signed 32-bit time to the unsigned 64 bits in which all timing wraps.
constexpr uint64_t _T_widen(int32_t value) {
    return static_cast<uint64_t>(int64_t{value});
}

/// A correction beyond three quarters of the 32-bit range, about 27 minutes, is taken as about to overflow.
constexpr uint32_t _S_correctionLimit = 1'610'612'736;

constexpr bool _T_is_beyond_limit(int32_t correction) {
    return static_cast<uint32_t>(correction) + _S_correctionLimit > 2 * _S_correctionLimit;
}

}  // namespace

/// The latency is what the camera's counter says has passed between the frame's timestamp and the fetch. A counter that
/// does not move (it reads 0, or what the frame says) can't tell; then the frames that should have come since the start
/// give it.
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
        // A step of nearly two periods is a frame that was skipped and says nothing about the interval.
        uint64_t const step = frame.blockTimestamp - previousBlockTimestamp_;
        uint64_t const skipped = 2 * uint64_t{settings.framePeriod} - settings.framePeriod / 10;
        if (step < skipped) {
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

/// A pace that is off must stay off for about three seconds, and a gross delay for about one, before it counts.
timestamp_sync::pace timestamp_sync::judgePace(timestamp_settings const& settings) {
    uint64_t const delay = frame_.hostTime - frameTimestamp_;
    uint64_t const tolerance = expectedDelay_ / 10;
    uint64_t const lower = expectedDelay_ - tolerance;
    uint64_t const upper = expectedDelay_ + tolerance;
    auto const patience = saturating_cast<uint32_t>(3.0F * settings.frameRate);
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
        slowCount_ = 0;
        resynchroniseToPace(settings);
    }
    uint64_t const gross = 4 * expectedDelay_;
    if (delay >= gross && ++extraSlowCount_ > saturating_cast<uint32_t>(settings.frameRate)) {
        result.extraSlow = {.delay = delay, .bound = gross};
        extraSlowCount_ = 0;
        resynchroniseToPace(settings);
    }
    return result;
}

/// In camera time the next timestamp follows the frame's own, carried over to host time and corrected for the
/// difference of the clocks' rates since the last resynchronisation. In host time it is one period after the arrival.
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
        frameTimestamp_ = now + settings.framePeriod;
    }
    result.timestamp = frameTimestamp_;
    return result;
}

/// When the camera took the frame that has just arrived, on the host's clock.
uint64_t timestamp_sync::cameraSideNow(timestamp_settings const& settings) const {
    return settings.latencyAdjustment + frame_.hostTime - _T_widen(latency_);
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
