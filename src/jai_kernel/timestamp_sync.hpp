#pragma once
#include <cstdint>
#include <optional>

namespace Vorn::Support::MediaGrabber::Jai {

/// What the synchronisation works with; may change from frame to frame.
struct timestamp_settings {
    uint32_t latencyAdjustment = 0;  ///< microseconds, added to the host's arrival times
    uint32_t secondAdjustment = 0;   ///< microseconds, added to the latency measured with the camera's counter
    int32_t clockCorrection = 0;     ///< camera clock correction in ns/s; 0 stamps with host time
    uint32_t tickFrequency = 0;      ///< ticks a second of the camera's counter; 0: the counter can't be used
    uint32_t framePeriod = 0;        ///< microseconds
    float frameRate = 0.0F;          ///< frames per second

    /// Do timestamps follow the camera's clock? Otherwise the host's time of day.
    bool followsCamera() const { return clockCorrection != 0 && tickFrequency != 0; }
};

/// Keeps frame timestamps in step with the host's clock. All times are microseconds.
///
/// The first good frame calibrates: how long a frame takes from the camera's timestamp to its arrival. From the second
/// on each frame is stamped with the time predicted when the frame before it was handled. A value type fed with
/// numbers: it reads no clock and logs nothing, but says what happened.
class timestamp_sync {
public:
    /// What is known when a good frame has arrived.
    struct arrival {
        uint64_t hostTime;        ///< when the fetch returned
        uint64_t blockTimestamp;  ///< the camera's timestamp of the frame
    };

    struct calibration {
        int32_t latency;
        uint64_t difference;        ///< host time minus camera time
        uint64_t expectedDelay;     ///< from a frame's timestamp to its arrival
        uint64_t blockTimeAtFetch;  ///< the camera's counter when the fetch returned
    };

    struct stamped {
        struct wrap {
            uint64_t oldTimestamp, newTimestamp;
        };
        struct initialisation {
            uint64_t oldDifference, newDifference, oldTimestamp, newTimestamp;
        };
        uint64_t timestamp;  ///< of this frame
        std::optional<wrap> wrapped;
        std::optional<initialisation> initialised;
    };

    struct readjustment {
        uint64_t delay;  ///< from the frame's timestamp to its arrival
        uint64_t bound;  ///< the limit that it crossed once too often
    };
    struct pace {
        std::optional<readjustment> fast, slow, extraSlow;
    };

    struct announcement {
        uint64_t timestamp;               ///< expected for the next frame
        std::optional<int32_t> overflow;  ///< the correction that had grown too large
    };

    explicit timestamp_sync(uint32_t framePeriod) : frameInterval_(framePeriod) {}

    /// Takes the first good frame. `startTime` is when grabbing started, in the low 32 bits of microseconds;
    /// `fetchesBefore` counts the fetches before this frame's; `ticks` is the camera's counter after the fetch.
    calibration calibrate(timestamp_settings const& settings, arrival const& frame, uint32_t startTime,
                          uint32_t fetchesBefore, uint64_t ticks);

    /// Stamps every later frame.
    stamped stamp(timestamp_settings const& settings, arrival const& frame);

    /// Tells whether frames keep coming earlier or later than expected, and resynchronises when they do.
    pace judgePace(timestamp_settings const& settings);

    /// Predicts the next frame's timestamp.
    announcement announce(timestamp_settings const& settings);

private:
    uint64_t cameraSideNow(timestamp_settings const& settings) const;
    void resynchronise(timestamp_settings const& settings, uint64_t base);
    void resynchroniseToPace(timestamp_settings const& settings);

    arrival frame_{};  ///< the frame being handled
    uint64_t previousBlockTimestamp_ = 0;
    uint64_t frameInterval_;  ///< estimate, from block timestamps
    int32_t latency_ = 0;
    uint64_t difference_ = 0;
    uint64_t base_ = 0;
    uint64_t expectedDelay_ = 0;
    uint64_t frameTimestamp_ = 0;  ///< of this frame, or, once announced, of the next
    bool stamping_ = false;        ///< a frame has been stamped since the calibration
    uint32_t fastCount_ = 0;
    uint32_t slowCount_ = 0;
    uint32_t extraSlowCount_ = 0;
};

}  // namespace Vorn::Support::MediaGrabber::Jai
