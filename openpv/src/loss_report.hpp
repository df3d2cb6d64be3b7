#pragma once
/// \file
/// What a user has to be told of lost packets. The layer has no log of its own: these are lines on standard error.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "gvsp_assembler.hpp"
#include "ipv4_address.hpp"

namespace openpv {

/// Says that a socket has room for too little, and which setting to raise to what; once for each need that is greater
/// than the ones before.
void warn_of_small_room(ipv4_address camera, std::size_t granted_bytes, std::size_t needed_bytes);

/// What was lost between a camera and its buffers, and where; or that packets were late to come, but came.
/// \param kernel_drops packets that reached this host and found no room in the socket
/// \return empty when nothing was missing
std::string describe_losses(assembler_counters const& counted, uint64_t kernel_drops);

/// Tells of a stream's losses while it goes on: at most every 10 s of frames that are lost, every minute of packets
/// that came when they were asked for again. Each line counts what has happened since the one before.
class loss_diary {
public:
    using time_point = std::chrono::steady_clock::time_point;

    loss_diary(ipv4_address camera, time_point now) : camera_(camera), last_(now) {}

    /// \param counted, kernel_drops of the whole stream until now
    void attend(assembler_counters const& counted, uint64_t kernel_drops, time_point now);
    /// Tells of all that was not told yet.
    void close(assembler_counters const& counted, uint64_t kernel_drops);

private:
    ipv4_address const camera_;
    time_point last_;  ///< when something was told
    assembler_counters told_;
    uint64_t told_drops_ = 0;
};

}  // namespace openpv
