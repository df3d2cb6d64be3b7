#pragma once
/// \file
/// Notices that a camera is gone, or that it no longer takes us for its controller.

#include <functional>
#include <thread>

#include "gvcp_client.hpp"

namespace openpv {

/// Reads the camera's control privilege twice a second, on a thread and a socket of its own. Aravis's heartbeat does so
/// too, but needs seven and a half seconds to give a camera up.
class loss_watch {
public:
    /// \param lost called once at most, on the watch's thread
    loss_watch(gvcp_client client, std::function<void()> lost);
    loss_watch(loss_watch const&) = delete;
    loss_watch& operator=(loss_watch const&) = delete;

private:
    void watch(std::stop_token const& stop);

    gvcp_client client_;
    std::function<void()> lost_;
    std::jthread thread_;  // last: it uses the others
};

}  // namespace openpv
