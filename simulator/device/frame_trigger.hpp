// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace camsim {

enum class trigger_source : std::uint8_t { software, line1, action1 };

/// Entries of TriggerSource, indexed by `trigger_source`.
inline constexpr std::array<std::string_view, 3> trigger_source_names{"Software", "Line1", "Action1"};

enum class trigger_edge : std::uint8_t { rising, falling };

struct trigger_settings {
    bool on = false;  ///< TriggerMode; otherwise exposures follow AcquisitionFrameRate
    trigger_source source = trigger_source::software;
    trigger_edge edge = trigger_edge::rising;
};

/// The trigger of a frame's exposure (SFNC: TriggerSelector is FrameStart). Not synchronised; part of camera_state.
class frame_trigger {
public:
    using time_point = std::chrono::steady_clock::time_point;

    trigger_settings settings;

    /// Accepts triggers from now on, or ignores them. Forgets one that waits.
    void arm(bool armed);

    /// Handles a signal of a source. It is missed if the camera does not wait for a trigger: without an acquisition,
    /// while the last frame is exposed or read out, and while an earlier trigger waits.
    /// \return whether it will be followed by an exposure
    bool fire(trigger_source from, time_point when);

    /// The trigger that waits for its exposure.
    std::optional<time_point> const& waiting() const { return waiting_; }

    /// Takes the trigger that waits.
    /// \param ready when the camera accepts the next one
    void take(time_point ready);

private:
    bool armed_ = false;
    std::optional<time_point> waiting_;
    time_point ready_{};
};

}  // namespace camsim
