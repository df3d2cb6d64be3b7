// SPDX-License-Identifier: MIT
/// \file
/// recorder_bench: writes frames in one of the formats of recordings, as fast as it can, and prints what it cost as
/// JSON.
///
///     recorder_bench DIRECTORY FORMAT WIDTH HEIGHT FRAMES
///
/// `first` and `last` are the cost of a frame after the first one and at the end: the medians of 100 frames.

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "recording/recording.hpp"

namespace {

using namespace mediagrabber;
using clock_type = std::chrono::steady_clock;

constexpr std::uint64_t probed = 100;  ///< frames whose cost is measured

double seconds_since(clock_type::time_point begin) {
    return std::chrono::duration<double>(clock_type::now() - begin).count();
}

output_format format_named(std::string const& name) {
    if (name == "tiff") {
        return output_format::tiff;
    }
    if (name == "bigtiff") {
        return output_format::bigtiff;
    }
    if (name == "hdf5") {
        return output_format::hdf5;
    }
    if (name == "raw") {
        return output_format::raw;
    }
    throw std::runtime_error("\"" + name + "\" is not a format: use tiff, bigtiff, hdf5 or raw");
}

/// Bytes and calls of this thread's writes so far.
struct writes {
    std::uint64_t bytes = 0;
    std::uint64_t calls = 0;

    static writes so_far() {
        std::ifstream in("/proc/thread-self/io");
        writes found;
        std::string name;
        for (std::uint64_t value = 0; in >> name >> value;) {
            if (name == "wchar:") {
                found.bytes = value;
            } else if (name == "syscw:") {
                found.calls = value;
            }
        }
        return found;
    }
};

double processor_seconds() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    auto const seconds = [](timeval time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

class frame_series {
public:
    frame_series(std::string const& directory, output_format kind, std::uint32_t width, std::uint32_t height)
        : recording_(directory, {.kind = kind, .compression = {}, .software = "recorder_bench", .model = ""}),
          pixels_(std::size_t{width} * height) {
        record_.format = &frame_formats[0];
        record_.width = width;
        record_.height = height;
        record_.stride = width;
    }

    void write() {
        ++record_.number;
        record_.timestamp_us = 1'700'000'000'000'000 + record_.number * 10'000;
        std::memcpy(pixels_.data(), &record_.number, std::min(sizeof record_.number, pixels_.size()));
        recording_.write({record_, pixels_});
    }
    /// The median cost of the next frames.
    nlohmann::json probe() {
        std::vector<double> times;
        auto const before = writes::so_far();
        for (std::uint64_t i = 0; i < probed; ++i) {
            auto const begin = clock_type::now();
            write();
            times.push_back(seconds_since(begin) * 1e6);
        }
        auto const after = writes::so_far();
        std::ranges::nth_element(times, times.begin() + probed / 2);
        return {{"us", times[probed / 2]},
                {"bytes", (after.bytes - before.bytes) / probed},
                {"calls", static_cast<double>(after.calls - before.calls) / probed}};
    }
    std::uint64_t frames() const { return record_.number; }

private:
    recording recording_;
    frame_record record_;
    std::vector<std::byte> pixels_;
};

int measure(std::string const& directory, std::string const& format, std::uint32_t width, std::uint32_t height,
            std::uint64_t frames) {
    auto const begin = clock_type::now();
    frame_series series(directory, format_named(format), width, height);
    series.write();
    nlohmann::json found;
    found["first"] = series.probe();
    while (series.frames() + probed < frames) {
        series.write();
    }
    found["last"] = series.probe();
    // Until everything is on the disk.
    int const opened = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0 || syncfs(opened) != 0) {
        throw std::runtime_error(directory + " cannot be written to the disk");
    }
    close(opened);
    found["seconds"] = seconds_since(begin);
    found["processor_seconds"] = processor_seconds();
    found["frames"] = series.frames();
    found["bytes"] = series.frames() * width * height;
    std::cout << found.dump() << '\n';
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc != 6) {
            throw std::runtime_error("usage: recorder_bench DIRECTORY FORMAT WIDTH HEIGHT FRAMES");
        }
        return measure(argv[1], argv[2], static_cast<std::uint32_t>(std::stoul(argv[3])),
                       static_cast<std::uint32_t>(std::stoul(argv[4])), std::stoull(argv[5]));
    } catch (std::exception const& error) {
        std::cerr << "recorder_bench: " << error.what() << '\n';
        return 1;
    }
}
