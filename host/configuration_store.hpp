#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "configuration.hpp"

namespace mediagrabber {

/// The configuration in force, and the one that is to follow it.
///
/// A configuration is never changed, and never released: texts and tables that the plug-in was given keep their
/// addresses and contents for the life of the process. What changes the configuration in force belongs to the plug-in's
/// thread; everything else may be called by any.
class configuration_store {
public:
    enum class result : std::uint8_t {
        nothing_offered,
        refused,        ///< the new file was faulty, the old configuration stays in force
        in_force,       ///< the run can go on with it
        needs_new_run,  ///< in force; values changed that only a new run can follow
    };
    /// How the plug-in has to be told.
    enum class way : std::uint8_t { small_change, reconfiguration };

    explicit configuration_store(configuration first);

    configuration const& in_force() const { return *in_force_; }

    /// Offers a configuration in place of one that may be waiting. \return the number of the offer, from 1
    std::uint64_t offer(configuration found);
    /// Offers what becomes of the latest configuration, the one that waits or else the one in force, by a change.
    /// \throws what `change` throws; nothing is offered then
    std::uint64_t offer_change(way how, std::function<void(configuration&)> const& change);
    /// A reload found a faulty file.
    void offer_refusal();
    /// What will be in force when everything that is offered has been taken.
    configuration latest() const;

    bool waiting() const { return waiting_; }
    /// Whether all that waits is a small change.
    bool small_change_waiting() const { return small_change_waiting_; }
    result take();
    /// The same, if all that waits is a small change. \return whether it is in force now
    bool take_small_change();
    /// The number of the last offer that was taken, 0 before the first.
    std::uint64_t taken() const { return taken_; }
    /// Brings one into force again that was so before.
    void go_back_to(configuration const& earlier);

private:
    struct waiting_offer {
        configuration found;
        way how = way::reconfiguration;
    };
    void put(configuration found, way how);
    void take_offer();
    void bring_into_force(configuration next);

    mutable std::mutex mutex_;  ///< of offer_, refusal_ and offered_
    std::optional<waiting_offer> offer_;
    bool refusal_ = false;
    std::uint64_t offered_ = 0;

    std::vector<std::unique_ptr<configuration const>> history_;  ///< used by the plug-in's thread alone
    std::atomic<configuration const*> in_force_;
    std::atomic<std::uint64_t> taken_{0};
    std::atomic<bool> waiting_{false};
    std::atomic<bool> small_change_waiting_{false};
};

}  // namespace mediagrabber
