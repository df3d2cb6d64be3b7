// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "device/output_lines.hpp"

namespace camsim {

/// Writes a value change dump (VCD, IEEE 1364) of the output lines and of the signals that can drive them, in
/// nanoseconds since power-up. Changes must come in the order of their times; an earlier one counts as simultaneous
/// with its predecessor. The stream must outlive the writer.
class vcd_writer {
public:
    vcd_writer(std::ostream& out, std::chrono::steady_clock::time_point power_up, output_lines const& at_power_up);

    void apply(line_change const& change);

private:
    static constexpr std::size_t wires = line_names.size() + line_source_names.size() - 2;  // without Low and High

    std::array<bool, wires> levels() const;

    std::ostream& out_;
    std::chrono::steady_clock::time_point power_up_;
    output_lines lines_;
    std::array<bool, wires> written_;
    std::int64_t written_time_ = 0;
};

/// A line trace file (`--line-trace`). A thread of its own sorts changes by time and writes them as soon as no earlier
/// one can arrive, and at the end. It runs from construction to finish() or destruction; add() and failed() may be
/// called by any thread.
class line_trace {
public:
    /// \throws std::runtime_error if the file cannot be created
    line_trace(std::string path, std::chrono::steady_clock::time_point power_up, output_lines const& at_power_up);

    void add(line_change change);

    /// Writes all changes and ends the thread.
    void finish();

    /// Whether a change could not be written. The error has been printed on standard error.
    bool failed() const;

private:
    void run(std::stop_token const& stop);
    void write_until(std::chrono::steady_clock::time_point end);

    std::string path_;
    std::ofstream file_;
    vcd_writer writer_;
    mutable std::mutex mutex_;
    std::condition_variable_any changed_;
    std::vector<line_change> queue_;
    bool failed_ = false;
    std::jthread thread_;
};

}  // namespace camsim
