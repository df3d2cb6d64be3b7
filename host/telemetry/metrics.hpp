// SPDX-License-Identifier: MIT
#pragma once

#include <prometheus/histogram.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "frames/frame_observer_like.hpp"
#include "frames/frame_record.hpp"
#include "status/recording_status.hpp"

namespace mediagrabber {

/// The metrics of a recording in the Prometheus text exposition format, version 0.0.4.
///
/// Counters and gauges are read from a recording_status for each scrape; histograms of the frames' times are collected
/// here, one observation per frame. The definitions in the .cpp are the only list of metrics: the reference in the
/// guide is generated from them, and unit tests check the dashboard and the alert rules against them.
///
/// on_frame() runs on the exporter's thread and does not allocate. text() may be called by any thread.
class metrics final : public frame_observer_like {
public:
    metrics();

    /// Sets what frame intervals are compared with. Call it before the first frame.
    /// \param period_us  active frame period, microseconds, 0 while not known; must outlive the last frame
    void measure_against(std::atomic<std::uint32_t> const& period_us) { period_us_ = &period_us; }

    /// Adds a frame's times to the histograms.
    void on_frame(frame_lease const& frame) noexcept override;

    /// \param status  a snapshot; a counter that is lower than in an earlier call keeps its earlier value, because
    ///                Prometheus takes a decrease for a restart of the process
    std::string text(recording_status const& status) const;

private:
    std::atomic<std::uint32_t> const* period_us_ = nullptr;
    std::optional<frame_record> last_;  ///< used only by the exporter's thread
    prometheus::Histogram interval_error_;
    prometheus::Histogram handover_delay_;
    prometheus::Histogram announcement_error_;

    mutable std::mutex mutex_;
    mutable std::vector<double> highest_;  ///< highest value reported so far, by position in the definitions
};

/// \return all metrics as a Markdown table, the reference in the guide
std::string metrics_reference();

/// \param period_us  frame period, microseconds; 0: not known
/// \return absolute difference between the interval of two frames and the number of frame periods it should have, in
///         seconds; nothing if the period is not known or the camera was restarted between the frames
std::optional<double> interval_error_s(frame_record const& before, frame_record const& now, std::uint32_t period_us);

}  // namespace mediagrabber
