#pragma once

#include <array>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "output_lines.hpp"

namespace camsim {

/// Writes levels over time as a value change dump (VCD, IEEE 1364), in nanoseconds since power-up: the lines, and the
/// signals that can drive them.
class vcd_writer {
public:
    vcd_writer(std::ostream& out, std::chrono::steady_clock::time_point power_up, output_lines const& at_power_up);

    void apply(line_change const& change);

private:
    static constexpr std::size_t wires = line_names.size() + line_source_names.size() - 2;  // but for Low and High

    std::array<bool, wires> levels() const;

    std::ostream& out_;
    std::chrono::steady_clock::time_point power_up_;
    output_lines lines_;
    std::array<bool, wires> written_;
    std::int64_t written_time_ = 0;
};

/// A trace file. A thread of its own brings changes into their order and writes them when no earlier one can come any
/// more, or when the camera ends.
class line_trace {
public:
    line_trace(std::string path, std::chrono::steady_clock::time_point power_up, output_lines const& at_power_up);

    void add(line_change change);
    void finish();
    bool failed() const;

private:
    void run(std::stop_token const& stop);
    void write_until(std::chrono::steady_clock::time_point end);

    std::string path_;
    std::ofstream file_;
    vcd_writer writer_;
    mutable std::mutex mutex_;
    std::condition_variable_any changed_;
    std::vector<line_change> waiting_;
    bool failed_ = false;
    std::jthread thread_;
};

}  // namespace camsim
