#pragma once

namespace mediagrabber {

/// Has this thread, and those that it makes from now on, run as soon as there is something to do for them, before
/// others that compute: it works in short pieces. Needs no privilege. Where the kernel does not know how (before
/// 6.12), threads stay as they are.
void work_promptly();

/// Has this thread run when no other has anything to do.
void work_when_idle();

}  // namespace mediagrabber
