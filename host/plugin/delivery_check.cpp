// SPDX-License-Identifier: MIT
#include "plugin/delivery_check.hpp"

#include <fmt/format.h>
#include <mg_log_records.hpp>

#include <cmath>
#include <cstdio>
#include <utility>

namespace mediagrabber {

namespace {

constexpr std::chrono::milliseconds min_window{2500};
constexpr std::uint64_t min_window_frames = 5;
constexpr double us_per_s = 1e6;

/// The tag of the region after configuration. The camera's region before it has another one.
constexpr std::string_view region_tag = "[MG_JAI_PROC:i]: ";

/// \return the rest of a text that starts with `start`
std::optional<std::string_view> after(std::optional<std::string_view> text, std::string_view start) {
    return text && text->starts_with(start) ? std::optional(text->substr(start.size())) : std::nullopt;
}

template <typename value>
std::optional<double> as_double(std::optional<value> const& configured) {
    return configured ? std::optional(static_cast<double>(*configured)) : std::nullopt;
}

}  // namespace

void rate_measurement::add(std::optional<std::uint32_t> counter, clock::time_point arrived) {
    bool const counted = counter && last_counter_ && *counter > *last_counter_;
    std::uint64_t const step = counted ? *counter - *last_counter_ : 1;
    last_counter_ = counter;
    if (!begin_) {
        begin_ = arrived;
        return;
    }
    frames_ += step;
    auto const elapsed = arrived - *begin_;
    if (elapsed < min_window || frames_ < min_window_frames) {
        return;
    }
    previous_ = last_;
    last_ = static_cast<double>(frames_) / std::chrono::duration<double>(elapsed).count();
    begin_ = arrived;
    frames_ = 0;
}

std::optional<double> rate_measurement::rate() const {
    return previous_ ? std::optional((*previous_ + *last_) / 2.0) : std::nullopt;
}

bool rate_measurement::deviates(double requested, double tolerance) const {
    double const low = requested * (1.0 - tolerance);
    double const high = requested * (1.0 + tolerance);
    return previous_ && ((*previous_ < low && *last_ < low) || (*previous_ > high && *last_ > high));
}

delivery_check::delivery_check(std::function<void(std::string const&)> warn) : warn_(std::move(warn)) {
    values_[width].key = "image.width";
    values_[height].key = "image.height";
    values_[offset_x].key = "image.offset_x";
    values_[offset_y].key = "image.offset_y";
    values_[frame_rate].key = "timing.frame_rate_hz";
}

void delivery_check::run_begins(configuration const& active) {
    std::lock_guard const lock(mutex_);
    for (auto& one : values_) {
        one.actual.reset();
        one.differs = false;
    }
    warned_ = {};
    reported_rate_.reset();
    measurement_.restart();
    exposure_us_.reset();
    request(active);
}

void delivery_check::configured(configuration const& active) {
    std::lock_guard const lock(mutex_);
    request(active);
    measurement_.restart();
}

/// Called with the mutex locked. A difference from another requested value is a new one.
void delivery_check::request(configuration const& active) {
    auto const& image = active.image;
    std::array<std::optional<double>, quantity_count> const requested{
        as_double(image.width), as_double(image.height), as_double(image.offset_x), as_double(image.offset_y),
        as_double(active.timing.frame_rate_hz)};
    for (std::size_t i = 0; i < quantity_count; ++i) {
        if (values_[i].requested != requested[i]) {
            values_[i].requested = requested[i];
            values_[i].differs = false;
            warned_[i] = false;
        }
    }
}

void delivery_check::rate_reported(std::uint32_t period_us) {
    std::lock_guard const lock(mutex_);
    reported_rate_ = period_us == 0 ? std::nullopt : std::optional(us_per_s / period_us);
}

void delivery_check::frame_arrived(frame const& arrived) {
    std::lock_guard const lock(mutex_);
    exposure_us_ = arrived.exposure_us;
    set_pixels(width, arrived.width);
    set_pixels(height, arrived.height);
    measurement_.add(arrived.counter, arrived.arrived);
    evaluate_rate();
}

/// Called with the mutex locked. A reported period has a resolution of 1 us, which is more than the tolerance at rates
/// above 20 kHz.
void delivery_check::evaluate_rate() {
    auto const requested = values_[frame_rate].requested;
    if (auto const measured = measurement_.rate()) {
        set(frame_rate, *measured, requested && measurement_.deviates(*requested, rate_tolerance));
    } else if (reported_rate_) {
        bool const differs = requested && std::abs(us_per_s / *reported_rate_ - us_per_s / *requested) >
                                              1.0 + rate_tolerance * us_per_s / *requested;
        set(frame_rate, *reported_rate_, differs);
    }
}

void delivery_check::read_log_line(std::string_view line) {
    auto const offsets = after(after(line, region_tag), mg_log_records::region_offsets);
    unsigned x = 0;
    unsigned y = 0;
    if (offsets && std::sscanf(std::string(*offsets).c_str(), "%u x %u", &x, &y) == 2) {
        std::lock_guard const lock(mutex_);
        set_pixels(offset_x, x);
        set_pixels(offset_y, y);
    }
}

/// Called with the mutex locked.
void delivery_check::set_pixels(quantity which, std::uint32_t actual) {
    set(which, actual, values_[which].requested != static_cast<double>(actual));
}

/// Called with the mutex locked. Logs the first difference.
void delivery_check::set(quantity which, double actual, bool differs) {
    auto& value = values_[which];
    value.actual = actual;
    value.differs = differs && value.requested;
    if (!value.differs) {
        return;
    }
    if (!warned_[which]) {
        warned_[which] = true;
        warn_(fmt::format("{}: requested {:.6g}, but the camera delivers {:.6g}: {}", value.key, *value.requested,
                          actual, advice(which, actual)));
    }
    last_differences_[which] = value;
}

/// Called with the mutex locked. \return what to do
std::string delivery_check::advice(quantity which, double actual) const {
    if (which != frame_rate) {
        return fmt::format(
            "configure {} = {:.6g}, or a region that the camera accepts; a refusal is in the plug-in's messages before "
            "this one",
            values_[which].key, actual);
    }
    double const requested = *values_[frame_rate].requested;
    if (actual > requested) {
        return fmt::format(
            "configure {} = {:.6g}, or a rate that the camera accepts; a refusal is in the plug-in's "
            "messages before this one",
            values_[frame_rate].key, actual);
    }
    double const period_us = us_per_s / requested;
    if (exposure_us_ && double{*exposure_us_} > period_us) {
        return fmt::format(
            "the exposure time of {:.6g} us is longer than the frame period of {:.6g} us, reduce exposure.time_us (or "
            "the upper limit of exposure.limits_us) or {}",
            double{*exposure_us_}, period_us, values_[frame_rate].key);
    }
    return fmt::format(
        "reduce image.height, exposure.time_us or {} until the camera reaches the rate; a refusal is in the plug-in's "
        "messages before this one",
        values_[frame_rate].key);
}

delivery_check::all_values delivery_check::values() const {
    std::lock_guard const lock(mutex_);
    return values_;
}

std::vector<std::string> delivery_check::differences() const {
    std::lock_guard const lock(mutex_);
    std::vector<std::string> found;
    for (auto const& one : last_differences_) {
        if (one.differs) {
            found.push_back(fmt::format("{}: requested {:.6g}, but the camera delivered {:.6g}", one.key,
                                        *one.requested, *one.actual));
        }
    }
    return found;
}

}  // namespace mediagrabber
