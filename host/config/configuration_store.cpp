// SPDX-License-Identifier: MIT
#include "config/configuration_store.hpp"

#include <algorithm>
#include <utility>

#include "config/configuration_schema.hpp"

namespace mediagrabber {

configuration_store::configuration_store(configuration first)
    : active_(std::make_shared<configuration const>(std::move(first))) {}

std::shared_ptr<configuration const> configuration_store::snapshot() const {
    std::lock_guard const lock(mutex_);
    return active_;
}

/// Called with the mutex locked.
void configuration_store::make_active(std::shared_ptr<configuration const> next) {
    active_ = std::move(next);
}

/// Called with the mutex locked. Two changes that become one need the stronger of the two notifications.
void configuration_store::put(configuration found, way how) {
    way const needed = staged_ ? std::max(staged_->how, how) : how;
    staged_ = staged_change{.found = std::move(found), .how = needed};
    ++last_number_;
    pending_ = true;
    live_update_pending_ = needed == way::live_update;
}

std::uint64_t configuration_store::stage(configuration found) {
    std::lock_guard const lock(mutex_);
    put(std::move(found), way::reconfiguration);
    return last_number_;
}

std::uint64_t configuration_store::stage_change(way how, std::function<void(configuration&)> const& change) {
    std::lock_guard const lock(mutex_);
    configuration changed = staged_ ? staged_->found : active();
    change(changed);
    put(std::move(changed), how);
    return last_number_;
}

void configuration_store::stage_refusal() {
    std::lock_guard const lock(mutex_);
    refusal_ = true;
}

configuration configuration_store::latest() const {
    std::lock_guard const lock(mutex_);
    return staged_ ? staged_->found : active();
}

/// The change stays `latest` until it is active, so that no other change starts from the configuration being replaced.
configuration_store::result configuration_store::activate() {
    std::lock_guard const lock(mutex_);
    bool const refusal = std::exchange(refusal_, false);
    if (!staged_) {
        return refusal ? result::refused : result::nothing_staged;
    }
    bool const restart = !changed_keys(active(), staged_->found, change_effect::restart).empty();
    activate_staged();
    return restart ? result::needs_restart : result::active;
}

bool configuration_store::activate_live_update() {
    if (!live_update_pending_) {
        return false;
    }
    std::lock_guard const lock(mutex_);
    bool const live_update = staged_ && staged_->how == way::live_update;
    if (live_update) {
        activate_staged();
    }
    return live_update;
}

/// Called with the mutex locked.
void configuration_store::activate_staged() {
    make_active(std::make_shared<configuration const>(std::move(staged_->found)));
    staged_.reset();
    activated_ = last_number_;
    pending_ = false;
    live_update_pending_ = false;
}

void configuration_store::rollback(std::shared_ptr<configuration const> earlier) {
    std::lock_guard const lock(mutex_);
    make_active(std::move(earlier));
}

}  // namespace mediagrabber
