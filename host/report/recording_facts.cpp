// SPDX-License-Identifier: MIT
#include "report/recording_facts.hpp"

#include <algorithm>

namespace mediagrabber {

namespace {

constexpr double us_per_s = 1e6;

double seconds_between(index_entry const& earlier, index_entry const& later) {
    return (static_cast<double>(later.timestamp_us) - static_cast<double>(earlier.timestamp_us)) / us_per_s;
}

/// \param share  0: minimum, 1: maximum
double quantile(std::vector<double> const& ascending, double share) {
    return ascending.empty() ? 0.0
                             : ascending[static_cast<std::size_t>(share * static_cast<double>(ascending.size() - 1))];
}

void add_times(recording_facts& found, std::span<index_entry const> frames) {
    std::vector<double> uncertainties;
    for (auto const& one : frames) {
        if (one.time_uncertainty_us) {
            uncertainties.push_back(*one.time_uncertainty_us);
            found.time_source = one.time_source.value_or("");
            found.clock_drift_ppm = one.clock_drift_ppm;
        }
    }
    std::ranges::sort(uncertainties);
    if (!uncertainties.empty()) {
        found.time_uncertainty_us = quantile(uncertainties, 0.5);
    }
}

}  // namespace

recording_facts facts_of(std::span<index_entry const> frames) {
    recording_facts found;
    found.frames = frames.size();
    for (std::size_t i = 1; i < frames.size(); ++i) {
        auto const& before = frames[i - 1];
        auto const& now = frames[i];
        double const at_s = seconds_between(frames[0], now);
        bool const counted = before.counter && now.counter;
        if (counted && *now.counter <= *before.counter) {
            found.restarts_s.push_back(at_s);
            continue;
        }
        loss lost{
            .at_s = at_s, .in_host = now.number > before.number ? now.number - before.number - 1 : 0, .before_host = 0};
        std::uint64_t const exposures = counted ? *now.counter - *before.counter - 1 : lost.in_host;
        lost.before_host = exposures > lost.in_host ? exposures - lost.in_host : 0;
        if (lost.in_host == 0 && lost.before_host == 0) {
            found.intervals_us.push_back(seconds_between(before, now) * us_per_s);
            continue;
        }
        found.lost_in_host += lost.in_host;
        found.lost_before_host += lost.before_host;
        found.losses.push_back(lost);
    }
    std::ranges::sort(found.intervals_us);
    constexpr double p99 = 0.99;
    found.interval = {.min_us = quantile(found.intervals_us, 0),
                      .median_us = quantile(found.intervals_us, 0.5),
                      .p99_us = quantile(found.intervals_us, p99),
                      .max_us = quantile(found.intervals_us, 1)};
    add_times(found, frames);
    if (frames.size() > 1) {
        found.duration_s = seconds_between(frames.front(), frames.back());
        found.frames_per_s = found.duration_s > 0 ? static_cast<double>(frames.size() - 1) / found.duration_s : 0;
    }
    return found;
}

}  // namespace mediagrabber
