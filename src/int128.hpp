// SPDX-License-Identifier: MIT
#pragma once

namespace Vorn::Support::MediaGrabber::Jai {

/// \name 128-bit integers
/// Sums and products of 64-bit values from the camera or the host do not overflow in them.
/// @{
__extension__ using int128 = __int128;
__extension__ using uint128 = unsigned __int128;
/// @}

}  // namespace Vorn::Support::MediaGrabber::Jai
