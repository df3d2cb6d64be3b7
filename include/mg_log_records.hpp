// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Log texts that programs parse: the one definition that their writers (the plug-in, openpv) and their readers (a
/// host) share.
///
/// The other texts of openpv may be reworded; those of the plug-in are fixed, see docs/development/coding-style.md.

namespace mg_log_records {

/// \name Plug-in messages that a host counts or reads
/// @{
inline constexpr char drop_report[] = "Frames Drop trigger";        ///< starts each report of dropped frames
inline constexpr char budget_exceeded[] = "time budget is over";    ///< in each report of a step that took too long
inline constexpr char region_offsets[] = "ROI OffsX x OffsY   : ";  ///< then the camera's offsets in pixels: `X x Y`
/// @}

/// \name openpv stream statistics
/// One line per report: `TAG KEY=NUMBER KEY=NUMBER ...`, separated by single blanks. Numbers are decimal and count from
/// the previous line of the same stream, so a reader adds them up. An absent key counts as 0. Readers ignore unknown
/// keys.
/// @{
inline constexpr char stream_tag[] = "openpv-stream-statistics:";
inline constexpr char packets_resend_requested[] = "packets_resend_requested";  ///< packets named in resend requests
inline constexpr char packets_resent[] = "packets_resent";  ///< distinct packets that arrived after a resend request
inline constexpr char packets_lost[] = "packets_lost";      ///< packets that never arrived
inline constexpr char packets_dropped_by_socket[] = "packets_dropped_by_socket";  ///< receive buffer full
inline constexpr char frames_incomplete[] = "frames_incomplete";                  ///< frames with lost packets
inline constexpr char frames_missing[] = "frames_missing";                        ///< frames lost entirely
inline constexpr char frames_without_buffer[] = "frames_without_buffer";          ///< no buffer was queued
inline constexpr char frames_too_large[] = "frames_too_large";                    ///< larger than their buffer
/// @}

}  // namespace mg_log_records
