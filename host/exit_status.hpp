#pragma once

namespace mediagrabber {

/// The statuses that mediagrabber ends with.
enum class exit_status : int {
    success = 0,      ///< everything that was asked for is there
    frames_lost = 1,  ///< frames were handed over and are not on disk, or fewer came than were asked for
    usage = 2,        ///< command line, configuration, plug-in file or output directory can't be used
    no_camera = 3,    ///< the plug-in found no camera, or not the one that is configured
    run_failed = 4,   ///< the plug-in ended with a failure
    cut_short = 5,    ///< a stop was asked for and the plug-in did not return; what had come is on disk

    // Of the commands that speak to a mediagrabber that is running.
    nobody_there = 6,    ///< no mediagrabber listens there
    not_changeable = 7,  ///< the value can't be changed while it runs
    timed_out = 8,       ///< it was not applied in time
    not_taken = 9,       ///< it was applied, and the camera has another value

    unfit = 10,  ///< the machine would lose frames (`doctor`)
};

}  // namespace mediagrabber
