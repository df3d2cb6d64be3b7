// SPDX-License-Identifier: MIT
#include "plugin/tone_curve.hpp"

#include <cmath>
#include <utility>

namespace mediagrabber {

namespace {

constexpr std::size_t gamma_points = 256;  ///< one per value of 8 bits

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

/// Has no effect on the image. Not interned, so that its address differs from that of a configured LUT with its values.
lookup_table const* identity() {
    static lookup_table const table = [] {
        constexpr auto full_scale = static_cast<float>((1U << lut_value_bits) - 1U);
        lookup_table entries;
        for (std::size_t i = 0; i < min_lut_entries; ++i) {
            auto const share = static_cast<float>(i) / static_cast<float>(min_lut_entries - 1);
            entries.push_back(static_cast<std::uint16_t>(std::lround(share * full_scale)));
        }
        return entries;
    }();
    return &table;
}

/// The plug-in switches the gamma off instead of applying it.
bool is_linear(float gamma) {
    constexpr float tolerance = 0.001F;  // the plug-in's
    return std::abs(gamma - 1.0F) <= tolerance;
}

}  // namespace

void tone_curve::run_begins(bool camera_lost) {
    std::lock_guard const lock(mutex_);
    loaded_ = nullptr;
    left_ = false;
    pass_.reset();
    pass_requested_ = false;
    bool const never_loaded = std::exchange(calculated_later_, false);
    if (camera_lost || never_loaded) {
        enter(kind::none);
    }
}

void tone_curve::pass_begins(tone_configuration const& active) {
    std::lock_guard const lock(mutex_);
    end_pass();
    if (active.enable) {
        pass_.emplace().gamma_wanted = active.gamma.has_value() && active.lut == nullptr;
    }
}

lookup_table const* tone_curve::table(tone_configuration const& active) const {
    std::lock_guard const lock(mutex_);
    bool const must_load_first = active.without_lut() && !left_ && loaded_ == nullptr;
    return must_load_first ? identity() : active.lut;
}

void tone_curve::table_read(tone_configuration const& active) {
    auto const* const read = table(active);
    std::lock_guard const lock(mutex_);
    if (pass_) {
        pass_->table_read = true;
        pass_->table = read;
    }
}

void tone_curve::table_loaded() {
    std::lock_guard const lock(mutex_);
    if (pass_ && pass_->table_read) {
        pass_->loaded = pass_->table != nullptr;
    }
}

std::optional<float> tone_curve::gamma(tone_configuration const& active) {
    std::lock_guard const lock(mutex_);
    auto const value = active.lut == nullptr ? active.gamma : std::nullopt;
    if (pass_) {
        pass_->gamma_read = true;
        pass_->gamma = value;
    }
    return value;
}

void tone_curve::pass_ends() {
    std::lock_guard const lock(mutex_);
    end_pass();
}

/// Called with the mutex locked.
void tone_curve::end_pass() {
    auto const ended = std::exchange(pass_, std::nullopt);
    if (!ended || !ended->table_read) {
        return;
    }
    if (ended->loaded) {
        loaded_ = ended->table;
        left_ = false;
        table_ = ended->table;
        // The next pass switches the identity off.
        pass_requested_ = table_ == identity();
        enter(pass_requested_ ? kind::none : kind::table);
        return;
    }
    if (ended->table == nullptr && loaded_ != nullptr) {
        loaded_ = nullptr;
        left_ = true;
        enter(kind::none);
    }
    if (!ended->gamma_read) {
        pass_requested_ = ended->gamma_wanted;
    } else if (ended->gamma && !is_linear(*ended->gamma)) {
        gamma_ = *ended->gamma;
        enter(kind::gamma);
    } else if (ended->gamma && camera_ == kind::gamma) {
        enter(kind::none);
    }
}

/// Called with the mutex locked. Until a calculated LUT is loaded after the switch back, nothing replaces it.
void tone_curve::enter(kind next) {
    if (calculated_later_) {
        return;
    }
    if (camera_ == kind::calculated && next != kind::calculated) {
        char const* const reason = next == kind::table   ? "the configured LUT replaces it"
                                   : next == kind::gamma ? "the configured gamma replaces it"
                                                         : "the camera has no tone curve now";
        warn_(std::string("the calculated LUT was dropped: ") + reason);
    }
    camera_ = next;
}

bool tone_curve::pass_requested() const {
    std::lock_guard const lock(mutex_);
    return pass_requested_;
}

bool tone_curve::take_pass_request() {
    std::lock_guard const lock(mutex_);
    return std::exchange(pass_requested_, false);
}

void tone_curve::calculated(std::span<std::uint16_t const> table, std::uint32_t value_bits, bool later) {
    auto values = fractions(table, value_bits);
    {
        std::lock_guard const lock(mutex_);
        end_pass();
        calculated_ = std::move(values);
        camera_ = kind::calculated;
        calculated_later_ = later;
        left_ = false;
        ++calculations_;
    }
    changed_.notify_all();
}

void tone_curve::calculated_loaded() {
    std::lock_guard const lock(mutex_);
    end_pass();
    calculated_later_ = false;
}

bool tone_curve::wait_for_calculation(std::uint64_t earlier, std::chrono::duration<double> timeout) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, timeout, [&] { return cancelled_ || calculations_ > earlier; });
    return calculations_ > earlier;
}

void tone_curve::cancel() {
    {
        std::lock_guard const lock(mutex_);
        cancelled_ = true;
    }
    changed_.notify_all();
}

tone_curve::snapshot tone_curve::current() const {
    std::lock_guard const lock(mutex_);
    snapshot now{.what = camera_, .values = {}, .gamma = 0.0F, .calculations = calculations_};
    switch (camera_) {
        case kind::calculated:
            now.values = calculated_;
            break;
        case kind::table:
            now.values = fractions(*table_, lut_value_bits);
            break;
        case kind::gamma:
            now.gamma = gamma_;
            now.values = gamma_curve(gamma_);
            break;
        case kind::none:
            break;
    }
    return now;
}

}  // namespace mediagrabber
