// SPDX-License-Identifier: MIT
#include "device/heartbeat_monitor.hpp"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <utility>

#include <pthread.h>

#include "device/connection_state.hpp"
#include "gvcp/gvcp_message.hpp"

namespace openpv {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds period{500};          ///< four reads within `connection_state::silence_timeout`
constexpr milliseconds suspect_period{100};  ///< confirms "port unreachable" within half a second
constexpr milliseconds max_delay{500};       ///< by a request under way
/// One attempt: the next heartbeat follows soon enough.
constexpr gvcp_channel::patience heartbeat{milliseconds(500), 1, milliseconds(500)};

/// \return false if a stop was requested
bool pause(std::stop_token const& stop, milliseconds time) {
    std::mutex mutex;
    std::condition_variable_any wake;
    // cppcheck-suppress localMutex ; the condition variable needs a lock, there is nothing to guard
    std::unique_lock lock(mutex);
    wake.wait_for(lock, stop, time, [] { return false; });
    return !stop.stop_requested();
}

}  // namespace

heartbeat_monitor::heartbeat_monitor(gvcp_channel& channel, bool controlled, std::function<void()> lost)
    : channel_(channel),
      controlled_(controlled),
      lost_(std::move(lost)),
      thread_([this](std::stop_token const& stop) { run(stop); }) {}

void heartbeat_monitor::run(std::stop_token const& stop) {
    ::pthread_setname_np(::pthread_self(), "openpv-heart");
    connection_state state(connection_state::clock::now(), controlled_);
    while (pause(stop, state.is_suspect() ? suspect_period : period)) {
        channel_.wait_idle(max_delay);
        std::uint32_t privilege = 0;
        auto const result = channel_.read_register(gvcp::reg::control_channel_privilege, privilege, heartbeat);
        state.add_response(channel_.last_response());
        state.add(result.outcome, privilege, connection_state::clock::now());
        if (state.lost()) {
            lost_();
            return;
        }
    }
}

}  // namespace openpv
