// SPDX-License-Identifier: MIT
#include "device/line_trace.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace camsim {

namespace {

using time_point = std::chrono::steady_clock::time_point;

/// The signals behind the lines, in the order of their wires.
constexpr std::array signals{line_source::exposure_active, line_source::frame_active, line_source::user_output0,
                             line_source::user_output1};
constexpr std::array<char const*, 6> wire_names{"line2",        "line3",        "exposure_active",
                                                "frame_active", "user_output0", "user_output1"};

/// Identifier codes of the wires: one printable character each.
char code(std::size_t wire) {
    return static_cast<char>('!' + wire);
}

/// A frame is exposed at most four periods plus its exposure late; at the minimum rate of 0.5 Hz these are 9 s.
constexpr std::chrono::seconds max_lateness{12};
constexpr std::chrono::milliseconds write_interval{200};

}  // namespace

vcd_writer::vcd_writer(std::ostream& out, time_point power_up, output_lines const& at_power_up)
    : out_(out), power_up_(power_up), lines_(at_power_up), written_(levels()) {
    out_ << "$comment camsim: levels of the camera's lines. Time 0 is the camera's power-up. $end\n"
         << "$timescale 1 ns $end\n$scope module camera $end\n";
    for (std::size_t wire = 0; wire < wires; ++wire) {
        out_ << "$var wire 1 " << code(wire) << ' ' << wire_names[wire] << " $end\n";
    }
    out_ << "$upscope $end\n$enddefinitions $end\n#0\n$dumpvars\n";
    for (std::size_t wire = 0; wire < wires; ++wire) {
        out_ << (written_[wire] ? '1' : '0') << code(wire) << '\n';
    }
    out_ << "$end\n";
}

void vcd_writer::apply(line_change const& change) {
    change.apply(lines_);
    auto const now = levels();
    if (now == written_) {
        return;
    }
    auto const time = std::chrono::duration_cast<std::chrono::nanoseconds>(change.when - power_up_).count();
    if (time > written_time_) {
        written_time_ = time;
        out_ << '#' << time << '\n';
    }
    for (std::size_t wire = 0; wire < wires; ++wire) {
        if (now[wire] != written_[wire]) {
            out_ << (now[wire] ? '1' : '0') << code(wire) << '\n';
        }
    }
    written_ = now;
}

std::array<bool, vcd_writer::wires> vcd_writer::levels() const {
    std::array<bool, wires> all{};
    for (std::size_t line = 0; line < line_names.size(); ++line) {
        all[line] = lines_.level(line);
    }
    for (std::size_t index = 0; index < signals.size(); ++index) {
        all[line_names.size() + index] = lines_.signal(signals[index]);
    }
    return all;
}

line_trace::line_trace(std::string path, time_point power_up, output_lines const& at_power_up)
    : path_(std::move(path)), file_(path_), writer_(file_, power_up, at_power_up) {
    if (!file_.flush()) {
        throw std::runtime_error("cannot write the line trace " + path_ + ": " + std::strerror(errno));
    }
    thread_ = std::jthread([this](std::stop_token const& stop) { run(stop); });
}

void line_trace::add(line_change change) {
    std::lock_guard const lock(mutex_);
    queue_.push_back(std::move(change));
}

void line_trace::finish() {
    thread_ = {};
}

bool line_trace::failed() const {
    std::lock_guard const lock(mutex_);
    return failed_;
}

void line_trace::run(std::stop_token const& stop) {
    while (!stop.stop_requested()) {
        write_until(std::chrono::steady_clock::now() - max_lateness);
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, stop, write_interval, [] { return false; });
    }
    write_until(time_point::max());
}

void line_trace::write_until(time_point end) {
    std::vector<line_change> due;
    {
        std::lock_guard const lock(mutex_);
        std::ranges::stable_sort(queue_, {}, &line_change::when);
        auto const first_later = std::ranges::find_if(queue_, [=](line_change const& one) { return one.when >= end; });
        std::move(queue_.begin(), first_later, std::back_inserter(due));
        queue_.erase(queue_.begin(), first_later);
    }
    for (line_change const& change : due) {
        writer_.apply(change);
    }
    if (file_.flush().fail() && !failed()) {
        std::fprintf(stderr, "camsim: cannot write the line trace %s: %s\n", path_.c_str(), std::strerror(errno));
        std::lock_guard const lock(mutex_);
        failed_ = true;
    }
}

}  // namespace camsim
