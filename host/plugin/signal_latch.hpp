// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

#include "mg_host_api.hpp"

namespace mediagrabber {

using mg_host_api::signal_code;

/// Holds requests until the plug-in has acted on them.
///
/// The plug-in polls once per fetch, but acts only if that fetch returned a good frame. Therefore a poll does not clear
/// a request: a stop stays pending until the run has ended, a reload until the plug-in requests the new configuration,
/// the LUT requests until a good frame follows the poll that reported them. If several are pending, a poll reports a
/// stop first, then a reload, then the LUT requests.
///
/// raise(), reload_pending() and stop_pending() may be called by any thread, the others by the plug-in's thread. No
/// locks.
class signal_latch {
public:
    void raise(signal_code requested);

    /// \return the pending request with the highest priority, or `none`
    signal_code poll();
    /// A good frame follows the last poll: the plug-in acts on what that poll reported.
    void frame_arrived();
    bool reload_pending() const { return (pending_ & bit(signal_code::reload)) != 0; }
    void reload_activated() { drop(signal_code::reload); }
    /// The host does not pass the request on.
    void refuse(signal_code one) { drop(one); }
    void run_ended();

    bool stop_pending() const;

private:
    static constexpr std::uint32_t bit(signal_code one) { return 1U << static_cast<std::uint32_t>(one); }
    void drop(signal_code one) { pending_ &= ~bit(one); }

    std::atomic<std::uint32_t> pending_{0};
    signal_code reported_ = signal_code::none;  ///< by the last poll; used by the plug-in's thread only
};

}  // namespace mediagrabber
