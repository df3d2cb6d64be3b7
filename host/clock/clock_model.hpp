// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace mediagrabber {

/// When the exposure of a frame began, on the host's monotonic clock.
struct exposure_start {
    double host_us = 0.0;
    double uncertainty_us = 0.0;  ///< half the width of an interval of at least 95 %
    bool absolute = false;        ///< false: the constant part of the delay is not part of the uncertainty
};

/// A measured pair of times: the camera clock showed `ticks` at `host_us`.
struct clock_reference {
    std::uint64_t ticks = 0;
    double host_us = 0.0;         ///< the host's monotonic clock
    double uncertainty_us = 0.0;  ///< half the width
};

/// Follows the camera clock on the host's monotonic clock while frames arrive.
///
/// Every frame has a delay, which is never negative and sometimes very long. The frames of each second contribute one
/// point: the minimum of their delays, a low quantile, or the mean of the middle half, whichever scatters least on this
/// network. A line that is robust against outliers goes through the points of the last seconds; the model uses the
/// longest of several windows that agrees with the shorter ones, so it is precise on a network with jitter and follows
/// the drift of the clock on a calm one. The clock that results is continuous: a new line is approached within seconds,
/// so that an interval between two frames is never off by the difference of two lines. If the delays of all frames
/// change at once, the path has changed, not the clocks: the model keeps its time.
///
/// The constant part of the delay follows from a reference, not from arrivals.
///
/// Nothing is allocated after construction. A sample costs less than 1 us, and once a second some 100 us.
class clock_model {
public:
    /// \param tick_hz  tick frequency of the camera; 0: found from the frames, a round number if one agrees
    explicit clock_model(double tick_hz = 0.0);

    /// \param ticks       camera clock at the start of the exposure
    /// \param arrival_us  on the monotonic clock, less the exposure time
    /// \return when the exposure began, from the frames added before and this one
    exposure_start estimate(std::uint64_t ticks, double arrival_us) const;

    /// Adds a frame. Forgets earlier frames if one of the clocks was set.
    void add(std::uint64_t ticks, double arrival_us);

    /// Replaces the reference; empty: removes it. It is used until one of the clocks is set.
    void set_reference(std::optional<clock_reference> const& reference);

    /// \return how much faster the camera clock runs than the host clock, parts per million; empty in the first
    ///         seconds, and if the frequency of the camera is not a round number and was not given
    std::optional<double> drift_ppm() const;
    /// \return the constant part of the delay, us, if a reference is given
    std::optional<double> delay_us() const;
    double tick_hz() const { return us_per_tick_ == 0.0 ? 0.0 : 1e6 / us_per_tick_; }
    std::uint64_t restarts() const { return restarts_; }          ///< how often a clock was set
    std::uint64_t path_changes() const { return path_changes_; }  ///< how often all delays changed

private:
    static constexpr std::size_t max_points = 300;
    static constexpr std::size_t max_samples = 512;  ///< of a point
    enum statistic : std::size_t { minimum, low_quantile, middle_mean, statistic_count };

    /// A second of frames. Times are relative to the first frame; the camera's in us of its nominal frequency.
    struct point {
        double camera_us = 0.0;
        std::array<double, statistic_count> delay_us{};  ///< arrival less camera time
    };
    /// A line of delays: `delay_us` at the newest of its points, which changes by `slope`.
    struct line {
        double delay_us = 0.0;
        double oldest_us = 0.0;  ///< time of the oldest of its points
        double spread_us = 0.0;  ///< root of the sum of squares of the points' times about their mean
        double slope = 0.0;
        double free_slope = 0.0;       ///< without what is known of clocks
        double error_us = 0.0;         ///< standard deviation of delay_us
        double scatter_us = 0.0;       ///< standard deviation of the points about the line
        double disagreement_us = 0.0;  ///< maximum distance from the lines of shorter windows
    };
    struct segment {
        double from_us = 0.0;  ///< camera time
        double delay_us = 0.0;
        double slope = 0.0;
    };

    double camera_us(std::uint64_t ticks) const;
    double delay_at(double camera_us) const;
    double provisional_delay() const;
    bool clock_was_set(std::uint64_t ticks, double arrival_us);
    void reset();
    void find_frequency();
    void end_second();
    void correct_frequency(double slope, double slope_error);
    void choose_statistic();
    double scatter_of_steps(std::size_t statistic) const;
    std::size_t follow_path();
    line fit(std::size_t first, std::size_t end) const;
    line best_line(std::size_t end) const;
    void approach(line const& target, double newest);
    void apply_reference(line const& best, double newest);

    double given_hz_ = 0.0;
    double us_per_tick_ = 0.0;      ///< nominal; 0: not yet known
    double frequency_error_ = 0.0;  ///< relative; 0: a round number, or given

    std::uint64_t first_ticks_ = 0;
    double first_arrival_us_ = 0.0;
    std::uint64_t last_ticks_ = 0;
    bool begun_ = false;
    std::size_t late_in_sequence_ = 0;  ///< frames so late that a clock may have been set
    double last_late_us_ = 0.0;

    // The present second.
    std::array<double, max_samples> sample_ticks_{};
    std::array<double, max_samples> sample_arrivals_us_{};
    std::size_t samples_ = 0;
    double second_begin_us_ = 0.0;

    std::array<point, max_points> points_{};  ///< the oldest first
    std::size_t point_count_ = 0;
    statistic used_ = middle_mean;
    double first_scatter_us_ = 0.0;
    double scatter_us_ = 0.0;     ///< of the points from one to the next
    double shift_us_ = 0.0;       ///< keeps the clock continuous when another statistic is used
    double path_error_us_ = 0.0;  ///< accumulated by path changes

    bool has_line_ = false;
    segment now_;  ///< until after_.from_us
    segment after_;
    double uncertainty_us_ = 0.0;

    std::optional<clock_reference> reference_;
    std::optional<double> constant_us_;  ///< delay that the reference has shown
    double constant_error_us_ = 0.0;
    double min_constant_error_us_ = 0.0;  ///< of all comparisons with the reference

    std::uint64_t restarts_ = 0;
    std::uint64_t path_changes_ = 0;
    mutable std::array<double, max_samples> scratch_{};
    mutable std::array<double, max_points> weights_{};
};

}  // namespace mediagrabber
