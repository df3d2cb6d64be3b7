// SPDX-License-Identifier: MIT
#pragma once

namespace mediagrabber {

/// The exit statuses of mediagrabber.
enum class exit_status : int {
    success = 0,
    frames_lost = 1,   ///< frames were dropped, could not be saved, or fewer arrived than requested
    usage = 2,         ///< the command line or configuration is not valid; another attempt is refused, too
    no_camera = 3,     ///< the plug-in found no camera, or not the configured one
    run_failed = 4,    ///< the plug-in ended with an error
    unresponsive = 5,  ///< the plug-in did not return after a stop request; the frames until then are saved

    // Only of `set` and `signal`
    no_recording = 6,    ///< no recording has that socket or process ID
    not_changeable = 7,  ///< the value cannot be changed while running
    timed_out = 8,       ///< the change was not confirmed in time
    value_differs = 9,   ///< the change was applied, but the camera has another value

    // Only of `doctor`
    unfit = 10,  ///< the machine has settings that cause frame loss

    /// A failure that may pass: plug-in, memory, output directory, a configured socket. A service
    /// manager should try again.
    unavailable = 11,
};

}  // namespace mediagrabber
