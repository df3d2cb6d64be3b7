// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace mediagrabber {

/// Limits concurrent operations, in total and for each client address. Does not queue: callers without a slot must
/// retry. Thread-safe; slots may outlive the object.
class address_limiter {
public:
    address_limiter(std::size_t in_total, std::size_t per_address)
        : in_total_(in_total), per_address_(per_address), state_(std::make_shared<state>()) {}

    /// \param address  of the client
    /// \return a slot, which its last owner frees; null if none is free
    std::shared_ptr<void> acquire(std::string const& address) {
        std::lock_guard const lock(state_->mutex);
        auto const found = state_->used_by.find(address);
        std::size_t const of_address = found == state_->used_by.end() ? 0 : found->second;
        if (state_->used >= in_total_ || of_address >= per_address_) {
            return nullptr;
        }
        ++state_->used;
        ++state_->used_by[address];
        return {state_.get(), [shared = state_, address](void*) { free(*shared, address); }};
    }

private:
    struct state {
        std::mutex mutex;  ///< guards the members below
        std::size_t used = 0;
        std::map<std::string, std::size_t> used_by;
    };

    static void free(state& of, std::string const& address) {
        std::lock_guard const lock(of.mutex);
        --of.used;
        if (--of.used_by[address] == 0) {
            of.used_by.erase(address);
        }
    }

    std::size_t const in_total_;
    std::size_t const per_address_;
    std::shared_ptr<state> const state_;
};

}  // namespace mediagrabber
