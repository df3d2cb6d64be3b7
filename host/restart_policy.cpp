#include "restart_policy.hpp"

namespace mediagrabber {

namespace {

// Other exit codes of MgLibProc.
constexpr std::int32_t orderly_end = 0;
constexpr std::int32_t no_device = 2;
constexpr std::int32_t no_target = 3;
constexpr std::int32_t not_opened = -5;
constexpr std::int32_t frames_ceased = -10;

/// Another attempt can't help where the configuration is what does not fit.
bool may_pass(std::int32_t exit_code) {
    return exit_code != buffers_unusable && exit_code != configuration_failed;
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
            return "the camera could not be opened";
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
    return after_failure(outcome.exit_code);
}

run_decision restart_policy::after_failure(std::int32_t exit_code) {
    using enum run_decision::step;
    ++failures_;
    bool const give_up = !may_pass(exit_code) || (give_up_after_ && failures_ > *give_up_after_);
    return {.next = give_up ? end : wait_and_run_again,
            .status = give_up ? status_of(exit_code) : exit_status::success,
            .reason = meaning_of(exit_code)};
}

}  // namespace mediagrabber
