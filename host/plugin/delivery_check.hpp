// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/configuration.hpp"

namespace mediagrabber {

/// The rate at which the camera exposes frames, measured over windows. A value type without threads or clocks.
///
/// A window ends after 2.5 s, or after 5 frames at lower rates. A busy machine delivers the last frame of a window
/// late, which makes one window slower and the next one faster; a pause of capture makes one window slower. Therefore a
/// deviation counts only if two consecutive windows deviate in the same direction.
class rate_measurement {
public:
    using clock = std::chrono::steady_clock;

    /// Discards everything: the frames that follow do not continue those before.
    void restart() { *this = {}; }
    /// \param counter  the camera's exposure counter; counts frames that were lost on the way, too
    void add(std::optional<std::uint32_t> counter, clock::time_point arrived);
    /// \return frames per second over the last two windows; nothing before
    std::optional<double> rate() const;
    /// \return whether both windows are faster, or both slower, by more than the fraction `tolerance`
    bool deviates(double requested, double tolerance) const;

private:
    std::optional<clock::time_point> begin_;  ///< of the current window
    std::uint64_t frames_ = 0;                ///< in the current window, without its first
    std::optional<std::uint32_t> last_counter_;
    std::optional<double> previous_;  ///< rate of the window before the last
    std::optional<double> last_;      ///< rate of the last complete window
};

/// A configured value and that of the camera.
struct delivered_value {
    char const* key = "";             ///< of the configuration
    std::optional<double> requested;  ///< empty: not configured
    std::optional<double> actual;     ///< empty: not known
    bool differs = false;
};

/// Compares the configured region and frame rate with those that the camera delivers, and logs each difference once per
/// run and requested value.
///
/// The host does not access the camera. Width and height are those of the frames. The frame rate is measured; until it
/// is, the rate that the plug-in reports counts. Offsets are in no frame and in no host function: they are known only
/// if the plug-in's log is read.
///
/// The plug-in's thread calls run_begins() to frame_arrived(), any thread the other members. One mutex guards
/// everything.
class delivery_check {
public:
    /// A rate differs if it deviates by more than this fraction. Cameras round the frame period to sensor lines, which
    /// is below 1 %; the measurement over 5 s has an error of 1 % if frames arrive up to 50 ms late.
    static constexpr double rate_tolerance = 0.02;

    enum quantity : std::size_t { width, height, offset_x, offset_y, frame_rate, quantity_count };
    using all_values = std::array<delivered_value, quantity_count>;

    /// \param warn  logs a difference; called with the mutex locked
    explicit delivery_check(std::function<void(std::string const&)> warn);

    /// A run begins: nothing is known about the camera.
    void run_begins(configuration const& active);
    /// Another configuration is active.
    void configured(configuration const& active);
    /// The plug-in has set the configured frame rate and read it back. \param period_us  0: unknown
    void rate_reported(std::uint32_t period_us);

    struct frame {
        std::uint32_t width = 0;   ///< pixels
        std::uint32_t height = 0;  ///< pixels
        std::optional<std::uint32_t> counter;
        std::optional<float> exposure_us;
        rate_measurement::clock::time_point arrived;
    };
    void frame_arrived(frame const& arrived);

    /// Reads a line of the plug-in's standard output, which may report the offsets.
    void read_log_line(std::string_view line);

    all_values values() const;
    /// One line for each value that differed at any time in this recording, for the summary.
    std::vector<std::string> differences() const;

private:
    void request(configuration const& active);
    void set(quantity which, double actual, bool differs);
    void set_pixels(quantity which, std::uint32_t actual);
    void evaluate_rate();
    std::string advice(quantity which, double actual) const;

    std::function<void(std::string const&)> const warn_;
    mutable std::mutex mutex_;
    all_values values_;
    std::array<bool, quantity_count> warned_{};  ///< about the requested value, in this run
    all_values last_differences_;                ///< of each in this recording, where `differs`
    std::optional<double> reported_rate_;        ///< frames/s
    rate_measurement measurement_;
    std::optional<float> exposure_us_;  ///< of the last frame
};

}  // namespace mediagrabber
