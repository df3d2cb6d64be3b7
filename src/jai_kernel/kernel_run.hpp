#pragma once

class PvDeviceInfo;

namespace Vorn::Support::MediaGrabber::Jai {

/// One whole run on one device: connects the camera, prepares its transport, grabs, disconnects.
/// \return what `CCamProc::ProcOnce` returned, or -5 when the camera could not be connected
int Kernel__Run(PvDeviceInfo const* info);

}  // namespace Vorn::Support::MediaGrabber::Jai
