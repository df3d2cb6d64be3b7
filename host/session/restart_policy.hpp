// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "base/exit_status.hpp"

namespace mediagrabber {

/// Whether an exit code of `MgLibProc` means that the camera or the plug-in refuses the configuration.
bool is_configuration_refused(std::int32_t exit_code);
/// The meaning of an exit code of `MgLibProc`, for the user.
char const* meaning_of(std::int32_t exit_code);
/// The exit status of mediagrabber after a last run with this exit code.
exit_status status_of(std::int32_t exit_code);

/// How a run of the plug-in ended.
struct run_outcome {
    std::int32_t exit_code = 0;      ///< of `MgLibProc`
    bool stop_requested = false;     ///< by the user, at any time
    bool frames_complete = false;    ///< all requested frames were exported
    bool new_configuration = false;  ///< the plug-in ended the run for a reload
    bool frames_arrived = false;     ///< in this run
    bool has_worked = false;         ///< frames have arrived with this configuration, in any run
};

/// What to do next.
struct run_decision {
    enum class step : std::uint8_t { end, run_again, wait_and_run_again };
    step next = step::end;
    exit_status status = exit_status::success;  ///< for step::end
    char const* reason = "";                    ///< for the log; empty if there is none
};

/// Decides after each run of the plug-in whether to restart acquisition, and counts consecutive failures. A value type
/// without threads or clocks.
class restart_policy {
public:
    /// \param give_up_after  maximum consecutive restarts without a frame; nothing: no limit
    explicit restart_policy(std::optional<std::uint32_t> give_up_after) : give_up_after_(give_up_after) {}

    run_decision decide(run_outcome const& outcome);

private:
    run_decision after_failure(run_outcome const& outcome);

    std::optional<std::uint32_t> const give_up_after_;
    std::uint32_t failures_ = 0;  ///< consecutive, without a frame
};

}  // namespace mediagrabber
