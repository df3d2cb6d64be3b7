#pragma once

#include <prometheus/histogram.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "frame_record.hpp"
#include "frame_watcher_like.hpp"
#include "live/recording_status.hpp"

namespace mediagrabber {

/// How a recording goes as Prometheus reads it: the text of its exposition format, version 0.0.4.
class metrics final : public frame_watcher_like {
public:
    metrics();

    /// What intervals between frames are compared with: the frame period in force, microseconds, 0 while not known. It
    /// outlives the last frame.
    void measure_against(std::atomic<std::uint32_t> const& period_us) { period_us_ = &period_us; }

    /// Puts a frame's times into the histograms.
    void see(frame_lease const& frame) noexcept override;

    /// \param status  of the recording now; what counts in it never goes back in what is told
    std::string text(recording_status const& status) const;

    static constexpr char content_type[] = "text/plain; version=0.0.4; charset=utf-8";

private:
    std::atomic<std::uint32_t> const* period_us_ = nullptr;
    std::optional<frame_record> last_;  ///< of the exporter's thread alone
    prometheus::Histogram interval_error_;
    prometheus::Histogram handover_delay_;
    prometheus::Histogram announcement_error_;

    mutable std::mutex mutex_;
    mutable std::vector<double> highest_;  ///< of each counter, what was told last
};

/// All metrics as a Markdown table: the reference in the guide is this text.
std::string metrics_reference();

/// How far the interval between two frames is from the periods that it should be, seconds, either way; nothing where
/// the period is not known or a run of the camera began in between.
std::optional<double> interval_error_s(frame_record const& before, frame_record const& now, std::uint32_t period_us);

}  // namespace mediagrabber
