// SPDX-License-Identifier: MIT
#include "clock/clock_model.hpp"

#include <algorithm>
#include <cmath>
#include <span>

#include "clock/tick_frequency.hpp"

namespace mediagrabber {

namespace {

constexpr double second_us = 1e6;
constexpr double approach_us = 4e6;  ///< time in which the clock approaches a new line
constexpr std::array<std::size_t, 5> windows{16, 32, 64, 128, 300};
/// Windows agree within this many standard deviations of the shorter one.
constexpr double agreement = 3.0;
constexpr double wide = 2.5;  ///< standard deviations of the stated uncertainty
constexpr double resolution_us = 2.0;
/// Quartz oscillators are within 50 ppm of their frequency; only the first seconds depend on this.
constexpr double usual_drift = 50e-6;
constexpr double max_drift = 300e-6;  ///< more than that, and the frequency is another one
/// A frequency that was measured this well agrees with a number of more digits by chance.
constexpr int digits = 3;
constexpr int fit_passes = 4;
constexpr double huber_limit = 2.0;
constexpr double outlier_limit = 6.0;
constexpr double median_efficiency = 1.2533;  ///< error of a median relative to that of a mean
constexpr std::size_t min_slopes = 3;         ///< for a frequency
constexpr double to_deviation = 1.4826;       ///< from the median of absolute values, for normal distributions
constexpr std::size_t points_for_scatter = 64;
constexpr std::size_t points_for_choice = 8;
constexpr std::size_t points_for_slope = 8;
constexpr double much_better = 0.5;
constexpr double quantile = 0.1;
/// A frame cannot arrive that much earlier than the others unless a clock was set.
constexpr double early_us = 1e5;
constexpr double late_us = 1e6;
constexpr std::size_t late_frames = 3;
constexpr double similar_us = 5e4;
constexpr double unknown_us = 1e5;  ///< uncertainty of the first frames
/// Numbers of points after which a change of the path is recognised; larger ones sooner.
constexpr std::size_t few = 4;
constexpr std::size_t many = 16;
constexpr double smallest_change_us = 50.0;

double median(std::span<double> values) {
    auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// How much larger the error of a line is than that of one through many independent points. Delays that depend on the
/// load of the machine are alike for some seconds; their correlation is estimated by Bartlett's weights, corrected for
/// the line having been fitted to them. A scatter that was estimated from few points may be too small.
double inflation(std::span<double const> distances, double scatter) {
    constexpr std::size_t lags = 4;
    constexpr double few_points = 6.0;  // determined with recordings from a busy machine
    auto const clamped = [&](std::size_t i) {
        return std::clamp(distances[i], -huber_limit * 2.0 * scatter, huber_limit * 2.0 * scatter);
    };
    auto const count = static_cast<double>(distances.size());
    auto const product = [&](std::size_t lag) {
        double sum = 0.0;
        for (std::size_t i = lag; i < distances.size(); ++i) {
            sum += clamped(i) * clamped(i - lag);
        }
        return sum;
    };
    double const square = product(0);
    double variance = 1.0;
    for (std::size_t lag = 1; lag <= lags && lag <= distances.size() / 4 && square > 0.0; ++lag) {
        double const weight = 1.0 - static_cast<double>(lag) / (lags + 1.0);
        variance += 2.0 * weight * (product(lag) / square + 2.0 / count);
    }
    return std::sqrt(std::max(variance, 1.0)) * (1.0 + few_points / count);
}

}  // namespace

clock_model::clock_model(double tick_hz) : given_hz_(tick_hz) {
    reset();
}

double clock_model::camera_us(std::uint64_t ticks) const {
    return static_cast<double>(static_cast<std::int64_t>(ticks - first_ticks_)) * us_per_tick_;
}

double clock_model::delay_at(double camera_us) const {
    segment const& one = camera_us < after_.from_us ? now_ : after_;
    return one.delay_us + (camera_us - one.from_us) * one.slope;
}

/// The mean of the middle half of the delays of the first second.
double clock_model::provisional_delay() const {
    auto const delays = std::span(scratch_).first(samples_);
    for (std::size_t i = 0; i < samples_; ++i) {
        delays[i] = sample_arrivals_us_[i] - sample_ticks_[i] * us_per_tick_;
    }
    std::sort(delays.begin(), delays.end());
    auto const inner = delays.subspan(samples_ / 4, samples_ - 2 * (samples_ / 4));
    double sum = 0.0;
    for (double const one : inner) {
        sum += one;
    }
    return sum / static_cast<double>(inner.size());
}

exposure_start clock_model::estimate(std::uint64_t ticks, double arrival_us) const {
    exposure_start result{.host_us = arrival_us, .uncertainty_us = unknown_us, .absolute = false};
    if (!begun_ || us_per_tick_ == 0.0 || (!has_line_ && samples_ == 0)) {
        return result;
    }
    double const camera = camera_us(ticks);
    double const expected = first_arrival_us_ + camera + (has_line_ ? delay_at(camera) : provisional_delay());
    double const late = arrival_us - expected;
    if (late < -early_us || late > late_us) {  // a clock may have been set
        result.uncertainty_us = std::abs(late);
        return result;
    }
    result.host_us = expected;
    result.uncertainty_us = uncertainty_us_;
    if (constant_us_ && has_line_) {
        result.host_us -= *constant_us_;
        result.uncertainty_us += constant_error_us_;
        result.absolute = true;
    }
    return result;
}

void clock_model::add(std::uint64_t ticks, double arrival_us) {
    if (begun_ && clock_was_set(ticks, arrival_us)) {
        reset();
        ++restarts_;
    }
    if (!begun_) {
        begun_ = true;
        first_ticks_ = ticks;
        first_arrival_us_ = arrival_us;
        second_begin_us_ = arrival_us;
    }
    last_ticks_ = ticks;
    if (samples_ > 0 && arrival_us - second_begin_us_ >= second_us) {
        end_second();
        second_begin_us_ = arrival_us;
    }
    if (samples_ < max_samples) {
        sample_ticks_[samples_] = static_cast<double>(static_cast<std::int64_t>(ticks - first_ticks_));
        sample_arrivals_us_[samples_] = arrival_us - first_arrival_us_;
        ++samples_;
    }
}

/// The camera clock cannot run backwards, nor can a frame arrive before it was sent. One late frame is no evidence;
/// several that are late by the same time are.
bool clock_model::clock_was_set(std::uint64_t ticks, double arrival_us) {
    if (static_cast<std::int64_t>(ticks - last_ticks_) <= 0) {
        return true;
    }
    if (us_per_tick_ == 0.0 || !has_line_) {
        return false;
    }
    double const camera = camera_us(ticks);
    double const late = arrival_us - first_arrival_us_ - camera - delay_at(camera);
    if (late < -early_us) {
        return true;
    }
    bool const again = late > late_us && (late_in_sequence_ == 0 || std::abs(late - last_late_us_) < similar_us);
    late_in_sequence_ = again ? late_in_sequence_ + 1 : 0;
    last_late_us_ = late;
    return late_in_sequence_ >= late_frames;
}

void clock_model::reset() {
    begun_ = false;
    has_line_ = false;
    us_per_tick_ = given_hz_ == 0.0 ? us_per_tick_ : 1e6 / given_hz_;  // a found frequency remains
    samples_ = 0;
    point_count_ = 0;
    used_ = middle_mean;
    scatter_us_ = 0.0;
    shift_us_ = 0.0;
    path_error_us_ = 0.0;
    uncertainty_us_ = unknown_us;
    late_in_sequence_ = 0;
    reference_.reset();
    constant_us_.reset();
}

/// The frequency from the frames of the first second, and from all points later, when it is more precise. A round
/// number that agrees with it is taken as exact.
void clock_model::find_frequency() {
    // The median of slopes between frames half of the time apart, because single frames may be very late.
    auto const half = samples_ / 2;
    auto const slopes = std::span(scratch_).first(half);
    for (std::size_t i = 0; i < half; ++i) {
        double const ticks = sample_ticks_[i + samples_ - half] - sample_ticks_[i];
        slopes[i] = ticks <= 0.0 ? 0.0 : (sample_arrivals_us_[i + samples_ - half] - sample_arrivals_us_[i]) / ticks;
    }
    double const slope = half < min_slopes ? 0.0 : median(slopes);
    if (slope <= 0.0) {
        return;
    }
    for (double& one : slopes) {
        one = std::abs(one - slope);
    }
    double const error =
        to_deviation * median_efficiency * median(slopes) / std::sqrt(static_cast<double>(half)) / slope;
    auto const found =
        round_tick_frequency({.hz = 1e6 / slope, .relative_uncertainty = wide * error + max_drift}, digits);
    us_per_tick_ = 1e6 / found.hz;
    frequency_error_ = found.relative_uncertainty;
}

void clock_model::end_second() {
    if (us_per_tick_ == 0.0) {
        find_frequency();
        if (us_per_tick_ == 0.0) {
            return;  // more frames are needed
        }
    }
    auto const delays = std::span(scratch_).first(samples_);
    double mean_ticks = 0.0;
    for (std::size_t i = 0; i < samples_; ++i) {
        delays[i] = sample_arrivals_us_[i] - sample_ticks_[i] * us_per_tick_;
        mean_ticks += sample_ticks_[i] / static_cast<double>(samples_);
    }
    std::sort(delays.begin(), delays.end());
    if (point_count_ == 0) {
        double const middle_half = delays[samples_ - 1 - samples_ / 4] - delays[samples_ / 4];
        first_scatter_us_ = std::max(middle_half / 1.35 / std::sqrt(static_cast<double>(samples_)), resolution_us);
    }
    if (point_count_ == max_points) {
        std::move(points_.begin() + 1, points_.end(), points_.begin());
        --point_count_;
    }
    point& added = points_[point_count_++];
    added.camera_us = mean_ticks * us_per_tick_;
    added.delay_us[minimum] = delays[0];
    added.delay_us[low_quantile] = delays[static_cast<std::size_t>(quantile * static_cast<double>(samples_ - 1))];
    added.delay_us[middle_mean] = 0.0;
    auto const inner = delays.subspan(samples_ / 4, samples_ - 2 * (samples_ / 4));
    for (double const one : inner) {
        added.delay_us[middle_mean] += one / static_cast<double>(inner.size());
    }
    samples_ = 0;
    choose_statistic();
    std::size_t const used = point_count_ - follow_path();
    line found = best_line(used);
    // The points scatter widely about the line if the frequency is wrong, because its slope is kept close to 0.
    double const slope_error = wide * scatter_us_ / found.spread_us;
    if (given_hz_ == 0.0 && point_count_ >= points_for_slope && std::abs(found.free_slope) > max_drift + slope_error) {
        correct_frequency(found.free_slope, slope_error);
        found = best_line(used);
    }
    approach(found, points_[used - 1].camera_us);
    apply_reference(found, points_[used - 1].camera_us);
}

/// The first second of a network with jitter may suggest another round number. Times of the host stay as they are.
void clock_model::correct_frequency(double slope, double slope_error) {
    auto const found = round_tick_frequency(
        {.hz = 1e6 / (us_per_tick_ * (1.0 + slope)), .relative_uncertainty = slope_error + max_drift}, digits);
    double const ratio = 1e6 / found.hz / us_per_tick_;
    us_per_tick_ = 1e6 / found.hz;
    frequency_error_ = found.relative_uncertainty;
    constant_us_.reset();
    for (point& one : std::span(points_).first(point_count_)) {
        for (double& delay : one.delay_us) {
            delay += one.camera_us * (1.0 - ratio);
        }
        one.camera_us *= ratio;
    }
    for (segment* const one : {&now_, &after_}) {
        one->delay_us += one->from_us * (1.0 - ratio);
        one->from_us *= ratio;
        one->slope = (1.0 + one->slope) / ratio - 1.0;
    }
}

/// Standard deviation of the points, from the steps between them: a line need not be known.
double clock_model::scatter_of_steps(std::size_t statistic) const {
    std::size_t const count = std::min(point_count_, points_for_scatter);
    auto const steps = std::span(scratch_).first(count - 1);
    auto const first = points_.begin() + static_cast<std::ptrdiff_t>(point_count_ - count);
    for (std::size_t i = 0; i + 1 < count; ++i) {
        steps[i] = first[static_cast<std::ptrdiff_t>(i) + 1].delay_us[statistic] -
                   first[static_cast<std::ptrdiff_t>(i)].delay_us[statistic];
    }
    double const middle = median(steps);
    for (double& one : steps) {
        one = std::abs(one - middle);
    }
    return to_deviation * median(steps) / std::sqrt(2.0) + resolution_us / 4.0;
}

/// Another statistic has another constant delay. The difference is kept, because the constant is unknown anyway and
/// intervals must stay correct.
void clock_model::choose_statistic() {
    if (point_count_ < points_for_choice) {
        scatter_us_ = first_scatter_us_;
        return;
    }
    std::array<double, statistic_count> scatters{};
    for (std::size_t i = 0; i < statistic_count; ++i) {
        scatters[i] = scatter_of_steps(i);
    }
    auto const best = static_cast<statistic>(std::min_element(scatters.begin(), scatters.end()) - scatters.begin());
    scatter_us_ = scatters[used_];
    if (best != used_ && (scatters[best] < much_better * scatters[used_] || point_count_ == points_for_choice)) {
        double const before = best_line(point_count_).delay_us;
        used_ = best;
        scatter_us_ = scatters[best];
        shift_us_ += before - best_line(point_count_).delay_us;
    }
}

/// If the newest points are all off the line of those before, the path has become longer or shorter. The clock keeps
/// its time.
/// \return how many of the newest points may be the beginning of such a change
std::size_t clock_model::follow_path() {
    std::size_t suspects = 0;
    for (std::size_t const count : {few, many}) {
        if (point_count_ < many + 2 * count) {
            break;
        }
        std::size_t const end = point_count_ - count;
        line const before = best_line(end);
        auto const off = std::span(scratch_).first(count);
        for (std::size_t i = 0; i < count; ++i) {
            point const& one = points_[end + i];
            off[i] =
                one.delay_us[used_] - before.delay_us - (one.camera_us - points_[end - 1].camera_us) * before.slope;
        }
        auto const trailing = [&](double limit_us) {
            double const sign = std::copysign(1.0, off.back());
            auto const inside =
                std::find_if(off.rbegin(), off.rend(), [&](double one) { return one * sign <= limit_us; });
            return static_cast<std::size_t>(inside - off.rbegin());
        };
        double const error = std::hypot(before.scatter_us / std::sqrt(static_cast<double>(count)), before.error_us);
        if (count == few) {
            suspects = trailing(8.0 * before.scatter_us + smallest_change_us);
        }
        bool const all_off = count == few ? suspects == few : trailing(0.0) == many;
        double const change = median(off);
        if (!all_off || std::abs(change) <= 7.0 * error + smallest_change_us) {
            continue;
        }
        // The older points are moved, so that later ones need no change.
        for (std::size_t i = 0; i < end; ++i) {
            for (double& delay : points_[i].delay_us) {
                delay += change;
            }
        }
        shift_us_ -= change;
        path_error_us_ += wide * error;
        ++path_changes_;
        return 0;
    }
    return suspects == few ? 0 : suspects;
}

/// A line through the points [first, end), by weighted regression that is repeated with the weights of Huber, and
/// without outliers. The less the points determine the slope, the closer it stays to 0.
clock_model::line clock_model::fit(std::size_t first, std::size_t end) const {
    auto const points = std::span(points_).subspan(first, end - first);
    auto const weights = std::span(weights_).first(points.size());
    auto const off = std::span(scratch_).first(points.size());
    double const newest = points.back().camera_us;
    double const usual = std::max(usual_drift, frequency_error_);
    std::fill(weights.begin(), weights.end(), 1.0);
    line found{.oldest_us = points.front().camera_us, .scatter_us = scatter_us_};
    for (int pass = 0; pass < fit_passes; ++pass) {
        double sum = 0.0;
        double mean_x = 0.0;
        double mean_y = 0.0;
        for (std::size_t i = 0; i < points.size(); ++i) {
            sum += weights[i];
            mean_x += weights[i] * (points[i].camera_us - newest);
            mean_y += weights[i] * points[i].delay_us[used_];
        }
        mean_x /= sum;
        mean_y /= sum;
        double xx = 0.0;
        double xy = 0.0;
        for (std::size_t i = 0; i < points.size(); ++i) {
            double const x = points[i].camera_us - newest - mean_x;
            xx += weights[i] * x * x;
            xy += weights[i] * x * (points[i].delay_us[used_] - mean_y);
        }
        double const doubt = (found.scatter_us / usual) * (found.scatter_us / usual);
        found.slope = xy / (xx + doubt);
        found.free_slope = xx == 0.0 ? 0.0 : xy / xx;
        found.spread_us = std::max(std::sqrt(xx), 1.0);
        found.delay_us = mean_y - found.slope * mean_x;
        for (std::size_t i = 0; i < points.size(); ++i) {
            weights[i] = points[i].delay_us[used_] - found.delay_us - (points[i].camera_us - newest) * found.slope;
            off[i] = std::abs(weights[i]);
        }
        found.scatter_us = std::max(to_deviation * median(off), scatter_us_);
        double const alike = pass + 1 < fit_passes ? 1.0 : inflation(weights, found.scatter_us);
        found.error_us = found.scatter_us * alike *
                         std::sqrt(1.0 / static_cast<double>(points.size()) + mean_x * mean_x / (xx + doubt));
        double total = 0.0;
        for (double& weight : weights) {  // holds the signed distance until here
            double const deviations = std::abs(weight) / found.scatter_us;
            weight = deviations > outlier_limit ? 0.0 : std::min(1.0, huber_limit / std::max(deviations, huber_limit));
            total += weight;
        }
        if (total < 1.0) {
            std::fill(weights.begin(), weights.end(), 1.0);
        }
    }
    return found;
}

/// The line of the longest window that agrees with those of all shorter ones. Lepski's method.
clock_model::line clock_model::best_line(std::size_t end) const {
    std::array<line, windows.size()> tried;
    std::size_t count = 0;
    for (std::size_t const window : windows) {
        line const one = fit(end - std::min(window, end), end);
        bool const agrees =
            std::all_of(tried.begin(), tried.begin() + static_cast<std::ptrdiff_t>(count), [&](line const& shorter) {
                return std::abs(one.delay_us - shorter.delay_us) <= agreement * shorter.error_us;
            });
        if (!agrees) {
            break;
        }
        tried[count++] = one;
        if (window >= end) {
            break;
        }
    }
    line best = tried[count - 1];
    for (std::size_t i = 0; i + 1 < count; ++i) {
        best.disagreement_us = std::max(best.disagreement_us, std::abs(best.delay_us - tried[i].delay_us));
    }
    return best;
}

/// Goes from the present delay to the line within seconds.
void clock_model::approach(line const& target, double newest) {
    double const now = std::max(newest, camera_us(last_ticks_));
    double const goal_now = target.delay_us + shift_us_ + (now - newest) * target.slope;
    uncertainty_us_ = resolution_us + wide * target.error_us + target.disagreement_us + path_error_us_;
    if (point_count_ < points_for_choice) {  // the first lines have large errors, and a better one follows soon
        has_line_ = true;
        now_ = after_ = {.from_us = now, .delay_us = goal_now, .slope = target.slope};
        return;
    }
    double const present = delay_at(now);
    double const time = std::min(approach_us, second_us * std::max(1.0, static_cast<double>(point_count_) / 8.0));
    double const goal = goal_now + time * target.slope;
    uncertainty_us_ += std::abs(present - goal_now);
    now_ = {.from_us = now, .delay_us = present, .slope = (goal - present) / time};
    after_ = {.from_us = now + time, .delay_us = goal, .slope = target.slope};
}

void clock_model::set_reference(std::optional<clock_reference> const& reference) {
    reference_ = reference;
    constant_us_.reset();
    if (has_line_) {
        apply_reference(best_line(point_count_), points_[point_count_ - 1].camera_us);
    }
}

/// The line has errors at the time of the reference: that of its slope, which grows with the time from its points to
/// the reference, and that of a changing drift, at most 1 ppm. If the drift changes steadily while the points are
/// taken, the ends of the line are off by a twelfth of the change times this duration.
///
/// Early comparisons include delays that are longer only at the start of a recording. Therefore the newest one is used,
/// unless it is much less certain than the best one.
void clock_model::apply_reference(line const& best, double newest) {
    if (!reference_) {
        return;
    }
    constexpr double slow_change = 1e-6;
    constexpr double curvature = 1.0 / 12.0;
    constexpr double much = 2.0;
    double const at = camera_us(reference_->ticks);
    double const outside = std::max({0.0, best.oldest_us - at, at - newest});
    double const inside = std::max(0.0, newest - std::max(at, best.oldest_us));
    double const error = reference_->uncertainty_us + uncertainty_us_ +
                         outside * (wide * std::min(best.scatter_us / best.spread_us, usual_drift) + slow_change) +
                         inside * slow_change * curvature;
    min_constant_error_us_ = constant_us_ ? std::min(min_constant_error_us_, error) : error;
    if (error > much * min_constant_error_us_) {
        return;
    }
    double const delay = at < newest ? best.delay_us + shift_us_ + (at - newest) * best.slope : delay_at(at);
    constant_us_ = first_arrival_us_ + at + delay - reference_->host_us;
    constant_error_us_ = error;
}

std::optional<double> clock_model::drift_ppm() const {
    if (!has_line_ || point_count_ < points_for_choice || frequency_error_ != 0.0) {
        return std::nullopt;
    }
    return -after_.slope * 1e6;
}

std::optional<double> clock_model::delay_us() const {
    return constant_us_;
}

}  // namespace mediagrabber
