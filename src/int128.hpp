#pragma once

namespace Vorn::Support::MediaGrabber::Jai {

// Where 64-bit values from the camera or the host are added or multiplied, nothing overflows in these.
__extension__ using int128 = __int128;
__extension__ using uint128 = unsigned __int128;

}  // namespace Vorn::Support::MediaGrabber::Jai
