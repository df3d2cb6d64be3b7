#include "lookup_table.hpp"

#include <cmath>
#include <mutex>
#include <set>
#include <stdexcept>
#include <utility>

namespace mediagrabber {

namespace {

constexpr double table_full_scale = (1U << table_value_bits) - 1U;
constexpr std::size_t most_entries_told = 65'535;

void check_length(std::size_t count) {
    if (count < fewest_entries || count > most_entries) {
        throw std::runtime_error("has " + std::to_string(count) + " entries, expected " +
                                 std::to_string(fewest_entries) + " to " + std::to_string(most_entries));
    }
}

double full_scale_of(raw_table const& raw, std::optional<unsigned> bits) {
    return raw.bits ? static_cast<double>((1U << bits.value_or(*raw.bits)) - 1U) : 1.0;
}

void check_values(raw_table const& raw, double full_scale) {
    for (std::size_t i = 0; i < raw.values.size(); ++i) {
        // Written so that what is no number fails as well.
        if (!(raw.values[i] >= 0.0 && raw.values[i] <= full_scale)) {
            throw std::runtime_error("entry " + std::to_string(i) + " is " + std::to_string(raw.values[i]) +
                                     ", expected 0 to " + std::to_string(static_cast<long>(full_scale)));
        }
    }
}

std::vector<double> thinned(std::vector<double> const& values, std::size_t step) {
    std::vector<double> kept;
    for (std::size_t i = 0; i < values.size(); i += step) {
        kept.push_back(values[i]);
    }
    return kept;
}

std::vector<double> interpolated(std::vector<double> const& values, std::size_t count) {
    std::vector<double> between(count);
    for (std::size_t i = 0; i < count; ++i) {
        double const place =
            static_cast<double>(i) * static_cast<double>(values.size() - 1) / static_cast<double>(count - 1);
        auto const below = static_cast<std::size_t>(place);
        std::size_t const above = std::min(below + 1, values.size() - 1);
        between[i] = std::lerp(values[below], values[above], place - static_cast<double>(below));
    }
    return between;
}

std::vector<double> with_a_length_for_the_plugin(std::vector<double> const& values) {
    if (values.size() % fewest_entries != 0) {
        return interpolated(values, fewest_entries);
    }
    return values.size() > most_entries_told ? thinned(values, 2) : values;
}

}  // namespace

lookup_table finished_table(raw_table const& raw, std::optional<unsigned> bits) {
    check_length(raw.values.size());
    double const full_scale = full_scale_of(raw, bits);
    check_values(raw, full_scale);
    lookup_table table;
    for (double const value : with_a_length_for_the_plugin(raw.values)) {
        table.push_back(static_cast<std::uint16_t>(std::lround(value / full_scale * table_full_scale)));
    }
    return table;
}

lookup_table const* kept_table(lookup_table table) {
    static std::mutex mutex;
    static std::set<lookup_table> tables;
    std::lock_guard const lock(mutex);
    return &*tables.insert(std::move(table)).first;
}

}  // namespace mediagrabber
