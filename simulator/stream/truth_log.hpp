// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <functional>
#include <istream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "image/frame_renderer.hpp"
#include "protocol/chunk_data.hpp"

/// The truth file: what the camera has sent, one JSON object per line. A test renders frames again from it and compares
/// them with what was recorded.
namespace camsim {

/// The first line: the camera and its scene.
struct truth_header {
    std::string model;
    std::string serial;
    std::uint64_t tick_frequency = 0;
    double clock_drift_ppm = 0.0;
    scene_settings scene;
    std::int64_t power_up_ns = 0;  ///< monotonic clock of the host
};

/// The outcome of a frame.
enum class frame_outcome : std::uint8_t {
    sent,     ///< its packets were passed to the kernel, except unsent_packets
    dropped,  ///< not sent: the camera was too late for it (it then has no block ID), or fault block_drop selected it
    aborted,  ///< the stream was closed, or the camera lost power, before its last packet
};

/// Times of a frame, in nanoseconds of the host's monotonic clock.
struct frame_times {
    std::int64_t exposure_start_ns = 0;
    std::int64_t exposure_end_ns = 0;
    std::optional<std::int64_t> send_start_ns{};  ///< before the leader was passed to the kernel; none: it never was
    std::optional<std::int64_t> send_end_ns{};    ///< after the last packet was passed to the kernel
    std::int64_t delay_ns = 0;                    ///< network delay, between exposure_end and send_start
    std::int64_t utc_offset_ns = 0;               ///< real-time clock minus monotonic clock

    friend bool operator==(frame_times const&, frame_times const&) = default;
};

/// How often each kind of fault was applied to a block, by the kind's name.
using fault_hits = std::map<std::string, std::uint32_t, std::less<>>;

/// A line that describes one frame.
struct truth_frame {
    frame_outcome outcome = frame_outcome::sent;
    std::uint64_t block_id = 0;          ///< 0: the camera dropped the frame
    std::uint64_t ticks = 0;             ///< at the start of the exposure
    std::int64_t exposure_start_us = 0;  ///< the same time, in microseconds of the host's real-time clock
    frame_times times;
    std::uint32_t unsent_packets = 0;  ///< rejected by the kernel: too long for the link, or no buffer free
    frame_settings settings;
    chunk_set chunks;
    std::uint64_t power_cycle = 1;  ///< counts power-ups; ticks, block IDs and frame numbers restart with each
    fault_hits faults{};            ///< applied when the frame was sent for the first time
};

/// A LUT that lines of a truth file refer to by its number; the first of them contains its entries.
using shared_lut = std::shared_ptr<lut_tables const>;

std::string to_json(truth_header const& header);

/// Absent values have no key: `chunks` and `faults` are written only if there are any, `gamma` or `lut` only if one is
/// applied, `power_cycle` from 2 on.
/// \param written_lut the LUT whose entries the file contains already; those of another one are written out
std::string to_json(truth_frame const& frame, shared_lut const& written_lut = {});

/// Writes a truth file. A thread of its own writes, so that a slow disk does not delay packets; it runs from
/// construction to finish() or destruction. add() and failed() may be called by any thread.
class truth_writer {
public:
    /// \throws std::runtime_error if the file cannot be created
    truth_writer(std::string path, truth_header const& header);

    void add(truth_frame const& frame);

    /// Writes the queued frames and ends the thread.
    void finish();

    /// Whether a frame could not be written. The error has been printed on standard error.
    bool failed() const;

private:
    void run(std::stop_token const& stop);
    void write(std::vector<truth_frame> const& frames);
    void write(truth_frame const& frame);

    std::string path_;
    std::ofstream file_;
    mutable std::mutex mutex_;
    std::condition_variable_any changed_;
    std::vector<truth_frame> queue_;
    shared_lut written_lut_;  ///< the LUT written last
    bool failed_ = false;
    std::jthread thread_;
};

/// Reads a truth file line by line. The stream must outlive it.
class truth_reader {
public:
    /// \throws std::runtime_error if the first line is not a valid truth header
    explicit truth_reader(std::istream& in);

    truth_header const& header() const { return header_; }

    /// \return the next frame; empty at the end. A last line without a line end is incomplete and counts as the end.
    /// \throws std::runtime_error with the line number if a line is not a valid frame
    std::optional<truth_frame> next();

private:
    std::istream& in_;
    std::uint64_t line_number_ = 1;
    truth_header header_;
    shared_lut lut_;
};

}  // namespace camsim
