#include "live/tone_curve.hpp"

#include <cmath>

namespace mediagrabber {

namespace {

constexpr std::size_t gamma_points = 256;

std::vector<float> fractions(std::span<std::uint16_t const> table, std::uint32_t value_bits) {
    auto const full_scale = static_cast<float>((1U << value_bits) - 1U);
    std::vector<float> values;
    values.reserve(table.size());
    for (auto const value : table) {
        values.push_back(static_cast<float>(value) / full_scale);
    }
    return values;
}

std::vector<float> gamma_curve(float gamma) {
    std::vector<float> values;
    for (std::size_t i = 0; i < gamma_points; ++i) {
        values.push_back(std::pow(static_cast<float>(i) / static_cast<float>(gamma_points - 1), gamma));
    }
    return values;
}

}  // namespace

void tone_curve::calculated(std::span<std::uint16_t const> table, std::uint32_t value_bits) {
    auto values = fractions(table, value_bits);
    {
        std::lock_guard const lock(mutex_);
        calculated_ = std::move(values);
        calculated_in_force_ = true;
        ++calculations_;
    }
    changed_.notify_all();
}

bool tone_curve::wait_for_calculation(std::uint64_t earlier, std::chrono::duration<double> longest) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, longest, [&] { return cancelled_ || calculations_ > earlier; });
    return calculations_ > earlier;
}

void tone_curve::cancel() {
    {
        std::lock_guard const lock(mutex_);
        cancelled_ = true;
    }
    changed_.notify_all();
}

void tone_curve::configured(configuration const& in_force) {
    std::lock_guard const lock(mutex_);
    if (table_ == in_force.lut && gamma_ == in_force.gamma && enabled_ == in_force.tone_enabled) {
        return;
    }
    table_ = in_force.lut;
    gamma_ = in_force.gamma;
    enabled_ = in_force.tone_enabled;
    calculated_in_force_ = false;
}

tone_curve::snapshot tone_curve::current() const {
    std::lock_guard const lock(mutex_);
    snapshot now{.what = kind::none, .values = {}, .gamma = 0.0F, .calculations = calculations_};
    if (calculated_in_force_) {
        now.what = kind::calculated;
        now.values = calculated_;
    } else if (enabled_ && table_ != nullptr) {
        now.what = kind::table;
        now.values = fractions(*table_, table_value_bits);
    } else if (enabled_ && gamma_) {
        now.what = kind::gamma;
        now.gamma = *gamma_;
        now.values = gamma_curve(*gamma_);
    }
    return now;
}

}  // namespace mediagrabber
