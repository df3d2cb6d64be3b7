#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

namespace camsim {

/// How long the way from the camera to the application takes, beyond the link itself.
struct network_delay_settings {
    double mean_ms = 0.0;
    double deviation_ms = 0.0;  ///< standard deviation; 0: every delay is the mean
    bool of_answers = false;    ///< answers on the control channel are delayed as well

    bool any() const { return mean_ms > 0.0; }
};

std::optional<network_delay_settings> parse_network_delay(std::string const& text);

/// Delays, one after the other, from a gamma distribution of that mean and deviation: like those of a network they are
/// never negative and reach further up than down. The same seed gives the same delays.
class network_delay {
public:
    network_delay(network_delay_settings const& settings, std::uint64_t seed);

    std::chrono::nanoseconds next();

private:
    network_delay_settings settings_;
    std::mt19937_64 random_;
    std::gamma_distribution<double> milliseconds_;
};

}  // namespace camsim
