// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Session with a camera: from taking control to releasing it.

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <PvResult.h>

#include "device/heartbeat_monitor.hpp"
#include "genicam/node_graph.hpp"
#include "gvcp/connection_id.hpp"
#include "gvcp/register_port.hpp"

namespace openpv {

/// What a session may do with its camera.
enum class session_mode {
    control,    ///< excludes other applications from control
    read_only,  ///< reads only, also while another application has control, unless that has exclusive access
};

/// Holds the control channel of a camera, its control privilege, and its features.
///
/// A session is never reconnected: after a loss, open another one. The link owns it; accesses under way keep it alive.
/// Operations may be called from any thread. `access` is serialised, so that a sequence of accesses is not mixed with
/// another one; accesses through `features` are not. Destruction does not wait for a lost camera.
class camera_session {
public:
    /// Connects and takes control. Blocks for about a second if the camera does not respond, and for
    /// `xml_loading::limit` at most while it reads the GenICam XML.
    /// \param lost called at most once, on the heartbeat thread, if the camera is lost
    /// \param result receives the reason for a failure: NOT_FOUND without this camera, GENERIC_ERROR if another
    ///     application controls it, if control is refused, or if its GenICam XML is invalid
    /// \return null on failure
    static std::unique_ptr<camera_session> open(connection_id const& id, std::function<void()> lost, PvResult& result,
                                                session_mode mode = session_mode::control);

    camera_session(camera_session const&) = delete;
    camera_session& operator=(camera_session const&) = delete;
    ~camera_session();  ///< releases control, unless the camera is lost

    bool alive() const { return !lost_; }  ///< false once the camera no longer responds, or this process lost control

    bool controlled() const { return controlled_; }  ///< whether the session has taken control

    /// The camera's features, to read and write single ones. Valid as long as the session.
    node_graph& features() { return *features_; }
    /// The camera's registers, accessed without waiting for `access`. Valid as long as the session.
    register_port& registers() { return *registers_; }

    /// Calls `operation(register_port&, node_graph&)`, which returns a `PvResult`, for a sequence of accesses.
    /// \param what what fails, as the start of a sentence: "Width cannot be read"
    /// \return NOT_CONNECTED if the camera is lost, also if that happens during the operation, which ends then.
    /// Otherwise
    ///     the result of the operation
    template <class function>
    PvResult access(std::string const& what, function&& operation) {
        if (!alive()) {
            return not_connected(what);
        }
        std::lock_guard const lock(mutex_);
        // cppcheck-suppress identicalConditionAfterEarlyExit ; it may be lost while other threads hold the lock
        if (!alive()) {
            return not_connected(what);
        }
        PvResult const result = operation(*registers_, *features_);
        return alive() || result.IsOK() ? result : not_connected(what);
    }

    /// \return NOT_CONNECTED, with a description that starts with `what`
    static PvResult not_connected(std::string const& what);

private:
    camera_session(std::unique_ptr<register_port> registers, std::unique_ptr<node_graph> features, bool controlled)
        : registers_(std::move(registers)), features_(std::move(features)), controlled_(controlled) {}

    std::unique_ptr<register_port> const registers_;  // before the features, which use it
    std::unique_ptr<node_graph> const features_;
    bool const controlled_;
    std::mutex mutex_;  ///< serialises `access`
    std::atomic<bool> lost_ = false;
    std::unique_ptr<heartbeat_monitor> heartbeat_;  // last: its thread uses `lost_`
};

}  // namespace openpv
