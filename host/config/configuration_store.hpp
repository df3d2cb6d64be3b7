// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "config/configuration.hpp"

namespace mediagrabber {

/// The active configuration, and the staged one that replaces it.
///
/// Any thread stages a configuration (a reload, `mediagrabber set`, the live page); the plug-in's thread activates it
/// at a point where the plug-in can follow. Staging again replaces what is pending; a change is applied to what is
/// pending.
///
/// A configuration is never modified once it is active, and destroyed when another one is active and no snapshot of it
/// exists, so that any number of changes needs no more memory. Texts and LUTs that the plug-in receives therefore have
/// owners of their own (see interned_text() and interned_lut()). `active`, `activate`, `activate_live_update` and
/// `rollback` may only be called by the plug-in's thread; every other function by any thread.
class configuration_store {
public:
    enum class result : std::uint8_t {
        nothing_staged,
        refused,        ///< the new file has errors; the active configuration is unchanged
        active,         ///< the run continues with the new configuration
        needs_restart,  ///< active; values have changed that take effect only when acquisition restarts
    };
    /// How the plug-in is notified of a change.
    enum class way : std::uint8_t { live_update, reconfiguration };

    explicit configuration_store(configuration first);

    /// The reference is valid until the next activation.
    configuration const& active() const { return *active_; }
    /// The active configuration.
    std::shared_ptr<configuration const> snapshot() const;

    /// Stages a configuration; replaces one that is pending. \return the number of the change, from 1
    std::uint64_t stage(configuration found);
    /// Stages `latest()` after a change.
    /// \return the number of the change
    /// \throws what `change` throws; nothing is staged then
    std::uint64_t stage_change(way how, std::function<void(configuration&)> const& change);
    /// Records that a reload found a file with errors, for the next activate().
    void stage_refusal();
    /// The pending configuration, or the active one if none is pending.
    configuration latest() const;

    bool pending() const { return pending_; }
    result activate();
    /// Activates what is pending if it is only a live update. \return whether it did
    bool activate_live_update();
    /// The number of the last change that was activated, 0 before the first.
    std::uint64_t activated() const { return activated_; }
    /// Activates a configuration again that was active before.
    void rollback(std::shared_ptr<configuration const> earlier);

private:
    struct staged_change {
        configuration found;
        way how = way::reconfiguration;
    };
    void put(configuration found, way how);
    void activate_staged();
    void make_active(std::shared_ptr<configuration const> next);

    mutable std::mutex mutex_;  ///< guards the members down to active_; the plug-in's thread reads active_ without it
    std::optional<staged_change> staged_;
    bool refusal_ = false;
    std::uint64_t last_number_ = 0;
    std::shared_ptr<configuration const> active_;

    std::atomic<std::uint64_t> activated_{0};
    std::atomic<bool> pending_{false};
    std::atomic<bool> live_update_pending_{false};  ///< lets activate_live_update() return without locking
};

}  // namespace mediagrabber
