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

#include "chunk_data.hpp"
#include "frame_renderer.hpp"

namespace camsim {

/// The camera as a truth file's first line tells it; its scene is what frames are rendered again from.
struct truth_header {
    std::string model;
    std::string serial;
    std::uint64_t tick_frequency = 0;
    double clock_drift_ppm = 0.0;
    scene_settings scene;
    std::int64_t power_up_ns = 0;  ///< of the host's monotonic clock
};

enum class frame_fate : std::uint8_t {
    sent,     ///< its packets were handed to the kernel, all but unsent_packets
    skipped,  ///< the camera could not keep up, and no block ID was spent on it; or a fault skipped its block
    aborted,  ///< the stream was closed while its packets were sent
};

/// When what happened to a frame, in nanoseconds of the host's monotonic clock.
struct frame_times {
    std::int64_t exposure_start_ns = 0;
    std::int64_t exposure_end_ns = 0;
    std::optional<std::int64_t> send_start_ns{};  ///< before the leader was handed to the kernel; none: it never was
    std::optional<std::int64_t> send_end_ns{};    ///< after the last packet was
    std::int64_t delay_ns = 0;                    ///< of the network, between exposure_end and send_start
    std::int64_t utc_offset_ns = 0;               ///< added to any of them it gives the host's real-time clock

    friend bool operator==(frame_times const&, frame_times const&) = default;
};

/// How often each kind of fault struck a block, by the kind's name.
using fault_hits = std::map<std::string, std::uint32_t, std::less<>>;

/// One frame of a truth file.
struct truth_frame {
    frame_fate fate = frame_fate::sent;
    std::uint64_t block_id = 0;          ///< 0: none, the frame was skipped
    std::uint64_t ticks = 0;             ///< at the beginning of the exposure
    std::int64_t exposure_start_us = 0;  ///< the same moment, in microseconds of the host's real-time clock
    frame_times times;
    std::uint32_t unsent_packets = 0;  ///< refused by the kernel: too long for the link, or no buffer left
    frame_settings settings;
    chunk_set chunks;  ///< that the block carries behind its picture
    std::uint64_t boot =
        1;                ///< counts the times that the camera got power; ticks, blocks and frames begin anew with it
    fault_hits faults{};  ///< that struck it on its way the first time, by name
};

/// The look-up table that lines of a truth file refer to by its number; it stands in the first of them.
using known_lut = std::shared_ptr<lut_tables const>;

std::string to_json(truth_header const& header);
std::string to_json(truth_frame const& frame, known_lut const& told = {});

/// Writes a truth file on a thread of its own, so that a slow disk does not delay packets.
class truth_writer {
public:
    truth_writer(std::string path, truth_header const& header);

    void add(truth_frame const& frame);
    void finish();
    bool failed() const;

private:
    void run(std::stop_token const& stop);
    void write(std::vector<truth_frame> const& frames);
    void write(truth_frame const& frame);

    std::string path_;
    std::ofstream file_;
    mutable std::mutex mutex_;
    std::condition_variable_any changed_;
    std::vector<truth_frame> waiting_;
    known_lut told_;  ///< the table that the file told last
    bool failed_ = false;
    std::jthread thread_;
};

/// Reads a truth file, line by line.
class truth_reader {
public:
    explicit truth_reader(std::istream& in);

    truth_header const& header() const { return header_; }
    std::optional<truth_frame> next();

private:
    std::istream& in_;
    std::uint64_t line_number_ = 1;
    truth_header header_;
    known_lut lut_;
};

}  // namespace camsim
