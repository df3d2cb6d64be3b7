#include "configuration_store.hpp"

#include <algorithm>
#include <utility>

#include "configuration_schema.hpp"

namespace mediagrabber {

configuration_store::configuration_store(configuration first) {
    bring_into_force(std::move(first));
}

void configuration_store::bring_into_force(configuration next) {
    history_.push_back(std::make_unique<configuration const>(std::move(next)));
    in_force_ = history_.back().get();
}

/// Called with the mutex locked. Two offers that become one need what the more demanding one needs.
void configuration_store::put(configuration found, way how) {
    way const needed = offer_ ? std::max(offer_->how, how) : how;
    offer_ = waiting_offer{.found = std::move(found), .how = needed};
    ++offered_;
    waiting_ = true;
    small_change_waiting_ = needed == way::small_change;
}

std::uint64_t configuration_store::offer(configuration found) {
    std::lock_guard const lock(mutex_);
    put(std::move(found), way::reconfiguration);
    return offered_;
}

std::uint64_t configuration_store::offer_change(way how, std::function<void(configuration&)> const& change) {
    std::lock_guard const lock(mutex_);
    configuration changed = offer_ ? offer_->found : in_force();
    change(changed);
    put(std::move(changed), how);
    return offered_;
}

void configuration_store::offer_refusal() {
    std::lock_guard const lock(mutex_);
    refusal_ = true;
}

configuration configuration_store::latest() const {
    std::lock_guard const lock(mutex_);
    return offer_ ? offer_->found : in_force();
}

/// The offer stays `latest` until it is in force, so that no change is made to what is about to be replaced.
configuration_store::result configuration_store::take() {
    std::lock_guard const lock(mutex_);
    bool const refusal = std::exchange(refusal_, false);
    if (!offer_) {
        return refusal ? result::refused : result::nothing_offered;
    }
    bool const new_run = !changed_keys(in_force(), offer_->found, change_effect::new_run).empty();
    take_offer();
    return new_run ? result::needs_new_run : result::in_force;
}

bool configuration_store::take_small_change() {
    if (!small_change_waiting_) {
        return false;
    }
    std::lock_guard const lock(mutex_);
    bool const small = offer_ && offer_->how == way::small_change;
    if (small) {
        take_offer();
    }
    return small;
}

/// Called with the mutex locked.
void configuration_store::take_offer() {
    bring_into_force(std::move(offer_->found));
    offer_.reset();
    taken_ = offered_;
    waiting_ = false;
    small_change_waiting_ = false;
}

void configuration_store::go_back_to(configuration const& earlier) {
    std::lock_guard const lock(mutex_);
    bring_into_force(earlier);
}

}  // namespace mediagrabber
