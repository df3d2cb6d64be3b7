// SPDX-License-Identifier: MIT
#include "session/restart_policy.hpp"

#include "mg_host_api.hpp"

namespace mediagrabber {

namespace {

using mg_host_api::exit_code;

/// A restart does not help if the camera refuses the configuration. With a configuration that has worked before, the
/// same exit code means that the camera was lost or busy while it was configured.
bool is_temporary(run_outcome const& outcome) {
    return !is_configuration_refused(outcome.exit_code) || outcome.has_worked;
}

}  // namespace

bool is_configuration_refused(std::int32_t code) {
    return exit_code{code} == exit_code::buffers_unusable || exit_code{code} == exit_code::configuration_failed;
}

exit_status status_of(std::int32_t code) {
    bool const no_camera = exit_code{code} == exit_code::no_device || exit_code{code} == exit_code::no_target;
    return no_camera ? exit_status::no_camera : exit_status::run_failed;
}

char const* meaning_of(std::int32_t code) {
    switch (exit_code{code}) {
        case exit_code::orderly_end:
            return "the plug-in ended its run without a stop request";
        case exit_code::reload_failed:
            return "the plug-in ended its run after a failed reload";
        case exit_code::no_device:
            return "no camera was found";
        case exit_code::no_target:
            return "the configured camera was not found";
        case exit_code::buffers_unusable:
            return "the plug-in could not use the frame buffers";
        case exit_code::configuration_failed:
            return "the camera could not be configured";
        case exit_code::camera_unavailable:
            return "the camera could not be opened, another application may be using it";
        case exit_code::grabbing_failed:
            return "frames stopped arriving, or the plug-in failed with an exception";
    }
    return "the plug-in ended with an unknown exit code";
}

run_decision restart_policy::decide(run_outcome const& outcome) {
    using enum run_decision::step;
    if (outcome.frames_arrived) {
        failures_ = 0;
    }
    if (outcome.stop_requested || outcome.frames_complete) {
        return {.next = end};
    }
    if (exit_code{outcome.exit_code} == exit_code::orderly_end && outcome.new_configuration) {
        return {.next = run_again};
    }
    return after_failure(outcome);
}

run_decision restart_policy::after_failure(run_outcome const& outcome) {
    using enum run_decision::step;
    ++failures_;
    bool const give_up = !is_temporary(outcome) || (give_up_after_ && failures_ > *give_up_after_);
    return {.next = give_up ? end : wait_and_run_again,
            .status = give_up ? status_of(outcome.exit_code) : exit_status::success,
            .reason = meaning_of(outcome.exit_code)};
}

}  // namespace mediagrabber
