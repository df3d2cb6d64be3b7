// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Signals that end a command.

namespace gevctl {

/// From now on SIGINT, SIGTERM, SIGHUP and SIGPIPE are recorded instead of ending the program, so that a command that
/// has control of a camera ends at its next step, restores what it has changed, and releases control. A signal that the
/// program was started to ignore stays ignored. A second SIGINT, SIGTERM or SIGHUP ends the program at once. Further
/// calls have no effect.
void catch_signals();

/// \return the first signal that was recorded; 0: none
int caught_signal();

/// Called before each step of a command that changes a camera.
/// \throws failure `interrupted` if a signal was recorded
void check_interruption();

}  // namespace gevctl
