// SPDX-License-Identifier: MIT
#pragma once

class PvDeviceInfo;

namespace Vorn::Support::MediaGrabber::Jai {

/// Makes one run on one device: connects the camera, prepares its transport, grabs, disconnects. Blocks for the length
/// of the run.
/// \param info the device, which must outlive the call
/// \return result of `CCamProc::ProcOnce`, or -5: the camera could not be connected
int Kernel__Run(PvDeviceInfo const* info);

}  // namespace Vorn::Support::MediaGrabber::Jai
