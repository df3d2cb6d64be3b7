#include "restart_policy.hpp"

namespace mediagrabber {

namespace {

// Other exit codes of MgLibProc.
constexpr std::int32_t orderly_end = 0;
constexpr std::int32_t no_device = 2;
constexpr std::int32_t no_target = 3;
constexpr std::int32_t not_opened = -5;
constexpr std::int32_t frames_ceased = -10;

/// Another attempt can't help where the configuration is what does not fit. One that has worked does fit: then the
/// camera was lost, or had other things to do, while it was configured.
bool may_pass(run_outcome const& outcome) {
    bool const unfit = outcome.exit_code == buffers_unusable || outcome.exit_code == configuration_failed;
    return !unfit || outcome.has_worked;
}

}  // namespace

exit_status status_of(std::int32_t exit_code) {
    return exit_code == no_device || exit_code == no_target ? exit_status::no_camera : exit_status::run_failed;
}

char const* meaning_of(std::int32_t exit_code) {
    switch (exit_code) {
        case orderly_end:
            return "the plug-in ended its run and nobody asked for it";
        case no_device:
            return "no camera was found";
        case no_target:
            return "the configured camera was not found";
        case buffers_unusable:
            return "the plug-in could not use the frame buffers";
        case configuration_failed:
            return "the camera could not be configured";
        case not_opened:
            return "the camera could not be opened, another application may have it";
        case frames_ceased:
            return "frames ceased to arrive, or the plug-in had an exception";
        default:
            return "the plug-in ended with an exit code of unknown meaning";
    }
}

run_decision restart_policy::decide(run_outcome const& outcome) {
    using enum run_decision::step;
    if (outcome.frames_arrived) {
        failures_ = 0;
    }
    if (outcome.stop_requested || outcome.frames_complete) {
        return {.next = end};
    }
    if (outcome.exit_code == orderly_end && outcome.new_configuration) {
        return {.next = run_again};
    }
    return after_failure(outcome);
}

run_decision restart_policy::after_failure(run_outcome const& outcome) {
    using enum run_decision::step;
    ++failures_;
    bool const give_up = !may_pass(outcome) || (give_up_after_ && failures_ > *give_up_after_);
    return {.next = give_up ? end : wait_and_run_again,
            .status = give_up ? status_of(outcome.exit_code) : exit_status::success,
            .reason = meaning_of(outcome.exit_code)};
}

}  // namespace mediagrabber
