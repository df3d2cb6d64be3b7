#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "configuration.hpp"

namespace mediagrabber {

/// The curve by which the camera makes pixel values of light: the one that was calculated from the picture last, else a
/// table or a gamma that is configured, else none.
class tone_curve {
public:
    enum class kind : std::uint8_t { none, calculated, table, gamma };

    struct snapshot {
        kind what = kind::none;
        std::vector<float> values;       ///< from 0 to 1, at equal distances from darkest to brightest; empty for none
        float gamma = 0.0F;              ///< of kind gamma
        std::uint64_t calculations = 0;  ///< how many have been calculated in this recording
    };

    /// A table was calculated, of values with so many bits. Of the plug-in's thread.
    void calculated(std::span<std::uint16_t const> table, std::uint32_t value_bits);
    /// This configuration is in force now; another tone than before ends a calculated table. Of the plug-in's thread.
    void configured(configuration const& in_force);
    snapshot current() const;
    /// Waits until more than `earlier` tables have been calculated, but no longer than so. \return whether they have
    bool wait_for_calculation(std::uint64_t earlier, std::chrono::duration<double> longest);
    /// Ends all waits, those to come as well.
    void cancel();

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool cancelled_ = false;
    std::vector<float> calculated_;
    bool calculated_in_force_ = false;
    std::uint64_t calculations_ = 0;
    lookup_table const* table_ = nullptr;  ///< lives as long as the process
    std::optional<float> gamma_;
    bool enabled_ = false;
};

}  // namespace mediagrabber
