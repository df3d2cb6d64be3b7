// SPDX-License-Identifier: MIT
#pragma once
#include <cstdint>
#include <memory>

#include <PvInterface.h>
#include <PvResult.h>

/// Discovers GigE Vision devices.
///
/// Owns the interfaces and devices that it found. `Find` must not run while another thread uses them.
class PvSystem {
public:
    PvSystem();
    PvSystem(PvSystem const&) = delete;
    PvSystem& operator=(PvSystem const&) = delete;
    ~PvSystem();

    /// Searches for devices on all network interfaces, for one second. Replaces the results of the previous search.
    /// \return GENERIC_ERROR if the interfaces cannot be listed; OK if no device was found
    PvResult Find();
    /// \return interfaces found by `Find`, with or without devices; 0 before the first search
    uint32_t GetInterfaceCount() const;
    /// \param index below `GetInterfaceCount()`
    /// \return the interface, owned by this object; null if there are fewer
    PvInterface const* GetInterface(uint32_t index) const;

private:
    struct impl;
    std::unique_ptr<impl> impl_;
};
