// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "config/configuration.hpp"

namespace mediagrabber {

/// What the plug-in has read in one pass over the configured tone, see tone_curve.
struct tone_pass {
    bool table_read = false;
    lookup_table const* table = nullptr;
    bool loaded = false;
    bool gamma_read = false;
    std::optional<float> gamma;
    bool gamma_wanted = false;
};

/// Gives the plug-in the configured LUT and gamma, and follows which tone curve the camera has: the LUT that was
/// calculated last, a configured LUT, a gamma, or none.
///
/// The plug-in applies the tone in passes: one at the start of each loop and one per change. In a pass it reads the
/// LUT, loads one that differs from the one it loaded last in this run, and switches a loaded LUT off if there is none
/// any more. Only if this leaves the camera unchanged does it read and apply the gamma. What it reads therefore shows
/// what it does. Two steps need a second pass, which pass_requested() requests: the gamma after a LUT was switched off,
/// and `tone.lut = "none"` where the plug-in has not loaded the camera's LUT itself: it switches off only its own, so
/// it first loads the identity.
///
/// The plug-in's thread calls everything but current(), wait_for_calculation() and cancel(), which any thread may call.
/// One mutex guards everything.
class tone_curve {
public:
    enum class kind : std::uint8_t { none, calculated, table, gamma };

    struct snapshot {
        kind what = kind::none;
        std::vector<float> values;       ///< from 0 to 1, for equidistant inputs from black to white; empty for none
        float gamma = 0.0F;              ///< for kind::gamma
        std::uint64_t calculations = 0;  ///< number of LUTs calculated in this recording
    };

    /// \param warn  logs that a calculated LUT was dropped; called with the mutex locked
    explicit tone_curve(std::function<void(std::string const&)> warn) : warn_(std::move(warn)) {}

    /// A run begins, in which the plug-in has not loaded a LUT yet.
    /// \param camera_lost  since the last run; the camera may have lost its LUT
    void run_begins(bool camera_lost);

    // ---- A pass, in the order of the plug-in's calls
    void pass_begins(tone_configuration const& active);
    /// \return the LUT for the plug-in, null: none; the address identifies the LUT
    lookup_table const* table(tone_configuration const& active) const;
    void table_read(tone_configuration const& active);
    /// The plug-in loads the LUT that it has read.
    void table_loaded();
    /// The LUT has left the camera unchanged, so the plug-in applies the gamma.
    /// \return the gamma for the plug-in; nothing while a LUT is configured, which a gamma would replace
    std::optional<float> gamma(tone_configuration const& active);
    /// The plug-in fetches the next frame; without effect if there was no pass.
    void pass_ends();

    /// \return whether the plug-in is to make another pass
    bool pass_requested() const;
    /// The same, and withdraws the request.
    bool take_pass_request();

    /// A LUT was calculated, which the plug-in loads.
    /// \param value_bits  significant bits of its entries
    /// \param later       after the switch back from 12 bits, see calculated_loaded()
    void calculated(std::span<std::uint16_t const> table, std::uint32_t value_bits, bool later = false);
    /// The plug-in has loaded the LUT that was calculated before the switch back from 12 bits.
    void calculated_loaded();

    snapshot current() const;
    /// Blocks until more than `earlier` LUTs have been calculated, the timeout expires, or cancel() is called.
    /// \return whether they have
    bool wait_for_calculation(std::uint64_t earlier, std::chrono::duration<double> timeout);
    /// Ends all present and future waits.
    void cancel();

private:
    void end_pass();
    void enter(kind next);

    std::function<void(std::string const&)> const warn_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool cancelled_ = false;

    kind camera_ = kind::none;  ///< what the camera has
    std::vector<float> calculated_;
    std::uint64_t calculations_ = 0;
    bool calculated_later_ = false;        ///< a calculated LUT is to be loaded after the switch back from 12 bits
    lookup_table const* table_ = nullptr;  ///< for kind::table; lives until the process ends
    float gamma_ = 1.0F;                   ///< for kind::gamma

    lookup_table const* loaded_ = nullptr;  ///< by the plug-in in this run
    bool left_ = false;                     ///< the LUT was switched off for `tone.lut = "none"`, and none loaded since
    std::optional<tone_pass> pass_;
    bool pass_requested_ = false;
};

}  // namespace mediagrabber
