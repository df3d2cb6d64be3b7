// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Access to the registers of a camera.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace openpv {

/// How an access ended.
enum class register_outcome {
    success,
    refused,      ///< the camera acknowledged with an error status
    timeout,      ///< no acknowledge in time
    unreachable,  ///< "port unreachable" from the camera's address: no GVCP server runs there
    closed,       ///< the connection is closed or lost
    invalid,      ///< the request cannot be expressed in GVCP, for example an address of more than 32 bits
};

/// Result of an access.
struct register_result {
    register_outcome outcome = register_outcome::success;
    std::uint16_t status = 0;  ///< GVCP status code of the acknowledge; 0 unless `refused`
    std::string description;   ///< reason of a failure, without full stop; empty on success

    bool ok() const { return outcome == register_outcome::success; }
};

/// Registers and memory of one camera.
///
/// The interface between the control channel and everything that evaluates features. All operations may be called from
/// any thread and block for the round trip, at most 5 s. Threads do not wait for each other's round trips. Errors are
/// returned, nothing throws.
class register_port {
public:
    virtual ~register_port() = default;

    /// Reads memory in the camera's byte order. More bytes than one message holds are read in several.
    /// \param into undefined on failure
    virtual register_result read(std::uint64_t address, std::span<std::byte> into) = 0;
    /// Writes memory in the camera's byte order. A failure may leave the first part written.
    virtual register_result write(std::uint64_t address, std::span<std::byte const> from) = 0;

    /// Reads a 32-bit register with READREG. Each camera supports it for its bootstrap registers.
    /// \param value in host byte order; unchanged on failure
    virtual register_result read_register(std::uint64_t address, std::uint32_t& value) = 0;
    /// Writes a 32-bit register with WRITEREG.
    /// \param value in host byte order
    virtual register_result write_register(std::uint64_t address, std::uint32_t value) = 0;
};

}  // namespace openpv
