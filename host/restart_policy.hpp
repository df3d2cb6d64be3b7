#pragma once

#include <cstdint>
#include <optional>

#include "exit_status.hpp"

namespace mediagrabber {

// Exit codes of `MgLibProc` that say that the configuration does not fit.
inline constexpr std::int32_t buffers_unusable = -1;
inline constexpr std::int32_t configuration_failed = -2;

/// What an exit code of `MgLibProc` means, for the operator.
char const* meaning_of(std::int32_t exit_code);
/// What mediagrabber ends with when it was the last.
exit_status status_of(std::int32_t exit_code);

/// How a run of the plug-in ended.
struct run_outcome {
    std::int32_t exit_code = 0;      ///< of `MgLibProc`
    bool stop_requested = false;     ///< by the operator, at any time
    bool frames_complete = false;    ///< as many frames as asked for were handed over
    bool new_configuration = false;  ///< the plug-in ended the run for a reload
    bool frames_arrived = false;     ///< in this run
    bool has_worked = false;         ///< frames have come with this configuration
};

/// What to do next.
struct run_decision {
    enum class step : std::uint8_t { end, run_again, wait_and_run_again };
    step next = step::end;
    exit_status status = exit_status::success;  ///< when the end it is
    char const* reason = "";                    ///< for the operator, empty when there is nothing to explain
};

/// Decides after each run of the plug-in whether there is another one.
class restart_policy {
public:
    /// \param give_up_after  attempts in a row, without a frame, after a failure; nothing: no limit
    explicit restart_policy(std::optional<std::uint32_t> give_up_after) : give_up_after_(give_up_after) {}

    run_decision decide(run_outcome const& outcome);

private:
    run_decision after_failure(run_outcome const& outcome);

    std::optional<std::uint32_t> const give_up_after_;
    std::uint32_t failures_ = 0;  ///< in a row, without a frame
};

}  // namespace mediagrabber
