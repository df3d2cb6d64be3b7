// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Reports packet loss on standard error, which is the only log of this layer: sentences for people, and a record with
/// the same counts for programs.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "gvsp/gvsp_assembler.hpp"
#include "net/ipv4_address.hpp"

namespace openpv {

/// Warns that a socket receive buffer is too small, and names the setting and the value to set. A process logs it once,
/// and again only for a larger need. May be called from any thread.
/// \param granted_bytes,needed_bytes packet data that fits, and that should fit
void warn_small_receive_buffer(ipv4_address camera, std::size_t granted_bytes, std::size_t needed_bytes);

/// A sentence about lost frames and packets and the cause, or about resends that prevented a loss.
/// \param kernel_drops packets that this host dropped because the socket receive buffer was full
/// \return empty if there is nothing to report
std::string describe_losses(assembler_counters const& counted, std::uint64_t kernel_drops);

/// The same counts as `TAG KEY=NUMBER...`, with the tag and keys of mg_log_records.hpp. Counts of 0 are left out.
/// \return empty if all counts are 0
std::string format_record(assembler_counters const& counted, std::uint64_t kernel_drops);

/// Logs the losses of one stream while it runs. Each report is a sentence and a record, and counts what happened since
/// the previous report of the same stream; the records of a stream add up to its totals.
///
/// Lost frames are reported at most every 10 s, resends without a loss at most every 60 s. Not thread-safe: owned by
/// the receiver and used by its thread.
class packet_loss_log {
public:
    using time_point = std::chrono::steady_clock::time_point;

    packet_loss_log(ipv4_address camera, time_point now) : camera_(camera), last_(now) {}

    /// Call it when a new assembler counts from 0 again. The socket's drops go on.
    void restart_counts() { reported_ = {}; }
    /// Writes a report if one is due.
    /// \param counted,kernel_drops totals of the stream
    void poll(assembler_counters const& counted, std::uint64_t kernel_drops, time_point now);
    /// Reports everything that was not reported yet. For the end of an acquisition.
    /// \param counted,kernel_drops totals of the stream
    void flush(assembler_counters const& counted, std::uint64_t kernel_drops);

private:
    ipv4_address const camera_;
    time_point last_;  ///< of the last report
    assembler_counters reported_;
    std::uint64_t reported_drops_ = 0;
};

}  // namespace openpv
