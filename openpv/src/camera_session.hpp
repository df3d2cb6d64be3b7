#pragma once
/// \file
/// One connection to a camera, from taking control to giving it back.

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <arv.h>

#include <PvResult.h>

#include "aravis_handle.hpp"
#include "connection_id.hpp"
#include "loss_watch.hpp"

namespace openpv {

/// Holds the control privilege. Operations may be called from any thread; `access` runs one at a time, because Aravis's
/// GenICam nodes are not made for more.
class camera_session {
public:
    /// Connects and takes control.
    /// \param lost called once at most, on a thread of the session, when the camera is lost
    /// \return null with the reason in `result`
    static std::unique_ptr<camera_session> open(connection_id const& id, std::function<void()> lost, PvResult& result);

    camera_session(camera_session const&) = delete;
    camera_session& operator=(camera_session const&) = delete;
    ~camera_session();  ///< gives control back

    bool alive() const { return !lost_; }  ///< false once the camera no longer answers, or no longer to us

    /// Calls `operation(ArvDevice&)`, which returns a `PvResult`, with the camera to itself. When the camera is lost,
    /// the result is NOT_CONNECTED: at once, unless it is lost while the operation asks it something; Aravis then
    /// waits 2.5 seconds for the answer.
    template <class function>
    PvResult access(std::string const& what, function&& operation) {
        if (!alive()) {
            return not_connected(what);
        }
        std::lock_guard const lock(mutex_);
        // cppcheck-suppress identicalConditionAfterEarlyExit ; it may have been lost while others had it
        if (!alive()) {
            return not_connected(what);
        }
        PvResult const result = operation(*device_);
        return alive() || result.IsOK() ? result : not_connected(what);
    }

    static PvResult not_connected(std::string const& what);

private:
    explicit camera_session(object_handle<ArvDevice> device) : device_(std::move(device)) {}

    object_handle<ArvDevice> device_;
    std::mutex mutex_;
    std::atomic<bool> lost_ = false;
    std::unique_ptr<loss_watch> watch_;  // last: it uses the others
};

}  // namespace openpv
