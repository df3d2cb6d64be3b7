// SPDX-License-Identifier: MIT
#include "gvsp/packet_loss_report.hpp"

#include <atomic>
#include <cstdio>

#include <mg_log_records.hpp>

namespace openpv {
namespace {

// Frequent enough to follow a disturbance, rare enough not to fill a log that runs for weeks.
constexpr std::chrono::seconds loss_interval{10};
constexpr std::chrono::seconds resend_interval{60};

void write_line(ipv4_address camera, std::string const& text) {
    std::fprintf(stderr, "openpv: stream from %s: %s\n", to_text(camera).c_str(), text.c_str());
}

void append(std::string& text, std::uint64_t count, char const* what) {
    if (count != 0) {
        text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + what;
    }
}

void append_field(std::string& record, char const* key, std::uint64_t count) {
    if (count != 0) {
        record += std::string(" ") + key + "=" + std::to_string(count);
    }
}

bool has_lost_frames(assembler_counters const& counted) {
    return counted.blocks_incomplete + counted.blocks_missing + counted.blocks_without_buffer +
               counted.blocks_too_large !=
           0;
}

bool has_resends(assembler_counters const& counted) {
    return counted.packets_resend_requested + counted.packets_resent != 0;
}

/// \return whether the need is greater than all that were reported before
bool exceeds_reported_need(std::size_t needed_bytes) {
    static std::atomic<std::size_t> reported = 0;
    std::size_t before = reported;
    while (before < needed_bytes && !reported.compare_exchange_weak(before, needed_bytes)) {
    }
    return before < needed_bytes;
}

}  // namespace

void warn_small_receive_buffer(ipv4_address camera, std::size_t granted_bytes, std::size_t needed_bytes) {
    if (exceeds_reported_need(needed_bytes)) {
        write_line(camera, "warning: the socket receive buffer holds " + std::to_string(granted_bytes) +
                               " bytes, less than two frames; packets are lost when this machine is busy. Raise the "
                               "limit: sysctl -w net.core.rmem_max=" +
                               std::to_string(needed_bytes));
    }
}

std::string describe_losses(assembler_counters const& counted, std::uint64_t kernel_drops) {
    std::string text;
    append(text, counted.blocks_incomplete, "frames incomplete");
    append(text, counted.blocks_missing, "frames lost entirely");
    append(text, counted.blocks_without_buffer, "frames without a queued buffer");
    append(text, counted.blocks_too_large, "frames larger than their buffer");
    bool const lost = !text.empty();
    append(text, counted.packets_lost, "packets lost");
    append(text, counted.packets_resend_requested, "packet resends requested");
    append(text, counted.packets_resent, "packets resent");
    if (!lost) {
        return text.empty() ? text : text + "; no frames lost";
    }
    if (kernel_drops != 0) {
        text +=
            "; " + std::to_string(kernel_drops) + " packets dropped: socket receive buffer full (net.core.rmem_max)";
    } else if (counted.packets_lost != 0) {
        text += "; no local drops: packets were lost in the network";
    }
    return text;
}

std::string format_record(assembler_counters const& counted, std::uint64_t kernel_drops) {
    std::string fields;
    append_field(fields, mg_log_records::packets_resend_requested, counted.packets_resend_requested);
    append_field(fields, mg_log_records::packets_resent, counted.packets_resent);
    append_field(fields, mg_log_records::packets_lost, counted.packets_lost);
    append_field(fields, mg_log_records::packets_dropped_by_socket, kernel_drops);
    append_field(fields, mg_log_records::frames_incomplete, counted.blocks_incomplete);
    append_field(fields, mg_log_records::frames_missing, counted.blocks_missing);
    append_field(fields, mg_log_records::frames_without_buffer, counted.blocks_without_buffer);
    append_field(fields, mg_log_records::frames_too_large, counted.blocks_too_large);
    return fields.empty() ? fields : mg_log_records::stream_tag + fields;
}

void packet_loss_log::poll(assembler_counters const& counted, std::uint64_t kernel_drops, time_point now) {
    if (now - last_ < loss_interval) {
        return;
    }
    assembler_counters unreported = counted;
    unreported -= reported_;
    if (has_lost_frames(unreported) || (has_resends(unreported) && now - last_ >= resend_interval)) {
        flush(counted, kernel_drops);
        last_ = now;
    }
}

void packet_loss_log::flush(assembler_counters const& counted, std::uint64_t kernel_drops) {
    assembler_counters unreported = counted;
    unreported -= reported_;
    std::uint64_t const drops = kernel_drops - reported_drops_;
    for (std::string const& line : {describe_losses(unreported, drops), format_record(unreported, drops)}) {
        if (!line.empty()) {
            write_line(camera_, line);
        }
    }
    reported_ = counted;
    reported_drops_ = kernel_drops;
}

}  // namespace openpv
