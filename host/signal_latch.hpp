#pragma once

#include <atomic>
#include <cstdint>

namespace mediagrabber {

/// What an operator asks of a run; the numbers are those of `MgUtl__CheckSignal`.
enum class request : std::int32_t {
    none = 0,
    stop = 1,         ///< SIGTERM
    reload = 2,       ///< SIGHUP
    user_1 = 3,       ///< SIGUSR1: calculate a look-up table from the picture
    user_2 = 4,       ///< SIGUSR2: the same, measured in 12 bits
    stop_second = 5,  ///< SIGINT
};

/// Keeps requests until the plug-in has taken them.
///
/// The plug-in polls once for every fetch, but acts only when that fetch gave a good frame. So a request can't be
/// dropped because it was polled: stop requests stay until the run has ended, a reload until the plug-in asks for the
/// new configuration, the user's signals until a good frame follows the poll that reported them. Of several, the poll
/// reports a stop first, then a reload, then the user's signals. Requests may be raised by any thread.
class signal_latch {
public:
    void raise(request asked);

    /// \return the request that comes first, `none` when nothing is asked
    request poll();
    /// A good frame follows the last poll: what that poll reported is being acted on.
    void frame_arrived();
    bool reload_pending() const { return (pending_ & bit(request::reload)) != 0; }
    void reload_taken() { drop(request::reload); }
    void run_ended();

    bool stop_pending() const;

private:
    static constexpr std::uint32_t bit(request asked) { return 1U << static_cast<std::uint32_t>(asked); }
    void drop(request asked) { pending_ &= ~bit(asked); }

    std::atomic<std::uint32_t> pending_{0};
    request reported_ = request::none;  ///< by the last poll; used by the plug-in's thread alone
};

}  // namespace mediagrabber
