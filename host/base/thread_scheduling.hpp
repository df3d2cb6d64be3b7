// SPDX-License-Identifier: MIT
#pragma once

namespace mediagrabber {

/// Requests short time slices for this thread and the threads that it starts from now on: the scheduler (EEVDF) then
/// runs them soon after they wake up, ahead of threads that compute. Needs no privilege. Has no effect before Linux
/// 6.12.
void request_short_time_slices();

/// Runs this thread only while no other thread wants the processor.
void schedule_as_idle();

}  // namespace mediagrabber
