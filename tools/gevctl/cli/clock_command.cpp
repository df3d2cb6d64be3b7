// SPDX-License-Identifier: MIT
#include "cli/clock_command.hpp"

#include <array>
#include <chrono>
#include <ctime>
#include <functional>
#include <ostream>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "camera/camera_clock.hpp"
#include "cli/camera_argument.hpp"
#include "report/interruption.hpp"

namespace gevctl {

namespace {

using std::chrono::milliseconds;
namespace reg = openpv::gvcp::reg;

constexpr std::uint64_t ns_per_s = 1'000'000'000;
/// A hundred readings per second find a short round trip, and hardly load the camera.
constexpr milliseconds pause{10};

std::int64_t machine_ns() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * static_cast<std::int64_t>(ns_per_s) + now.tv_nsec;
}

/// Reads the clock of a camera: a feature that runs, or the bootstrap register, which is latched before each reading.
class clock_reader {
public:
    explicit clock_reader(opened_camera& camera) : camera_(camera) {
        frequency_ = camera_.connection.read_register_pair(reg::tick_frequency);
        // With IEEE 1588, cameras may leave the register 0; their timestamps are in ns then.
        frequency_ = frequency_ != 0 ? frequency_ : ns_per_s;
        stream_frequency_ = frequency_;
        for (char const* const name : {"GevTimestampValue", "Timestamp"}) {
            feature_info const* const one = camera_.features.catalogue().find(name);
            if (one != nullptr && one->type == PvGenTypeInteger && runs(*one)) {
                running_ = one;
                // `Timestamp` (SFNC 2) is in ns unless it has another unit; `GevTimestampValue` is in ticks.
                bool const is_timestamp = one->unit.empty() && one->name == "Timestamp";
                frequency_ = is_timestamp ? ns_per_s : frequency_of_unit(one->unit).value_or(frequency_);
                return;
            }
        }
    }

    bool is_latched() const { return running_ == nullptr; }
    std::uint64_t frequency() const { return frequency_; }
    std::uint64_t stream_frequency() const { return stream_frequency_; }

    clock_reading read() {
        clock_reading one;
        std::uint64_t ticks = 0;
        one.before_ns = machine_ns();
        if (running_ != nullptr) {
            ticks = ticks_of(*running_);
            one.after_ns = machine_ns();
        } else {
            camera_.connection.write_register(reg::timestamp_control, openpv::gvcp::timestamp_latch);
            one.after_ns = machine_ns();
            ticks = camera_.connection.read_register_pair(reg::timestamp);
        }
        one.camera_ns = ticks_to_ns(ticks, frequency_);
        return one;
    }

private:
    std::uint64_t ticks_of(feature_info const& one) {
        return static_cast<std::uint64_t>(std::get<std::int64_t>(camera_.features.read(one)));
    }

    /// A latched value that another program latches changes at times, but not with each reading.
    bool runs(feature_info const& one) {
        if (!camera_.features.access_to(one).readable) {
            return false;
        }
        constexpr int readings = 5;
        std::uint64_t last = ticks_of(one);
        for (int i = 1; i < readings; ++i) {
            std::uint64_t const ticks = ticks_of(one);
            if (ticks == last) {
                return false;
            }
            last = ticks;
        }
        return true;
    }

    opened_camera& camera_;
    std::uint64_t frequency_ = 0;
    std::uint64_t stream_frequency_ = 0;     ///< of the timestamps of frames
    feature_info const* running_ = nullptr;  ///< null: the clock is latched
};

std::vector<clock_reading> measure(clock_reader& clock, double seconds) {
    std::vector<clock_reading> readings;
    auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (readings.size() < 2 || std::chrono::steady_clock::now() < end) {
        check_interruption();
        readings.push_back(clock.read());
        std::this_thread::sleep_for(pause);
    }
    return readings;
}

/// Half a microsecond is added for the rounding of the time.
void print_reference(clock_comparison const& found, clock_reader const& clock, std::ostream& out) {
    constexpr std::int64_t ns_per_us = 1000;
    out << "timing.clock_reference = [" << ns_to_ticks(found.at_ns + found.offset_ns, clock.stream_frequency()) << ", "
        << (found.at_ns + ns_per_us / 2) / ns_per_us << ", " << (found.uncertainty_ns + ns_per_us / 2) / ns_per_us + 1
        << ']' << std::endl;
}

void print(clock_comparison const& found, clock_reader const& clock, std::size_t readings, clock_options const& options,
           std::ostream& out) {
    if (options.reference) {
        print_reference(found, clock, out);
        return;
    }
    if (options.json) {
        nlohmann::ordered_json const json{{"offset_ns", found.offset_ns},
                                          {"uncertainty_ns", found.uncertainty_ns},
                                          {"drift_ppb", found.drift_ppb},
                                          {"drift_uncertainty_ppb", found.drift_uncertainty_ppb},
                                          {"machine_time_ns", found.at_ns},
                                          {"camera_time_ns", found.at_ns + found.offset_ns},
                                          {"tick_frequency_hz", clock.frequency()},
                                          {"latched", clock.is_latched()},
                                          {"readings", readings}};
        out << json.dump() << std::endl;
        return;
    }
    std::array<char, 200> text{};
    std::snprintf(text.data(), text.size(),
                  "offset %+.6f s, uncertainty %.6f s; drift %+.0f ppb, uncertainty %.0f ppb (%zu readings, %s)",
                  static_cast<double>(found.offset_ns) / 1e9, static_cast<double>(found.uncertainty_ns) / 1e9,
                  found.drift_ppb, found.drift_uncertainty_ppb, readings,
                  clock.is_latched() ? "latched" : "running timestamp");
    out << text.data() << std::endl;
}

}  // namespace

exit_status clock_command(clock_options const& options, std::ostream& out) {
    opened_camera camera(find_camera(options.camera));
    clock_reader clock(camera);
    do {
        auto const readings = measure(clock, options.seconds);
        print(compare_clocks(readings), clock, readings.size(), options, out);
    } while (options.watch && out);
    return exit_status::success;
}

}  // namespace gevctl
