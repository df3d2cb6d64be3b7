// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

namespace camsim {

/// The delay of the network between camera and application (`--network-delay`).
struct network_delay_settings {
    double mean_ms = 0.0;
    double deviation_ms = 0.0;  ///< standard deviation; 0: every delay is the mean
    bool delay_acks = false;    ///< delays the ACKs on the control channel too

    bool any() const { return mean_ms > 0.0; }
};

/// Parses MEAN or MEAN:DEVIATION in milliseconds, such as "5" or "5:1.5"; 0 to 10000 each.
/// \return empty if the text is not valid, or has a deviation without a mean
std::optional<network_delay_settings> parse_network_delay(std::string const& text);

/// A sequence of delays with a gamma distribution, which is never negative and has a long tail, as network delays do.
/// The same seed gives the same delays. Used by one thread at a time.
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
