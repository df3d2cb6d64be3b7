// SPDX-License-Identifier: MIT
#include "report/chart.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace mediagrabber {

namespace {

// Sizes in the units of the drawing, which is scaled to the width of the page.
constexpr double wide = 900;
constexpr double high = 220;
constexpr double left = 70;
constexpr double bottom = 40;
constexpr double top = 26;
constexpr double base = high - bottom;   ///< y of the horizontal axis
constexpr std::size_t max_places = 800;  ///< along a line: about one per unit of the drawing
constexpr double min_bar_width = 1.5;    ///< still visible

std::string number(double value) {
    return fmt::format("{:.6g}", value);
}

double x_of(double value, axis const& across) {
    double const span = across.to > across.from ? across.to - across.from : 1;
    return left + (value - across.from) / span * (wide - left);
}

/// Opens the drawing: both axes, their names, and the ends of the horizontal one.
std::string frame_of(axis const& across, std::string const& vertical, std::string const& description) {
    return fmt::format(
        "<svg viewBox=\"0 0 {} {}\" role=\"img\" aria-label=\"{}\">"
        "<path class=\"axis\" d=\"M{} {}V{}H{}\"/>"
        "<text x=\"0\" y=\"12\">{}</text>"
        "<text x=\"{}\" y=\"{}\">{}</text>"
        "<text x=\"{}\" y=\"{}\" text-anchor=\"middle\">{}, {}</text>"
        "<text x=\"{}\" y=\"{}\" text-anchor=\"end\">{}</text>",
        wide, high, description, left, top, base, wide, vertical, left, base + 16, number(across.from),
        (left + wide) / 2, high - 6, across.name, across.unit, wide, base + 16, number(across.to));
}

/// A tick of the vertical axis with its value.
std::string tick(double y, double value) {
    return fmt::format("<path class=\"axis\" d=\"M{} {}H{}\"/><text x=\"{}\" y=\"{}\" text-anchor=\"end\">{}</text>",
                       left - 4, number(y), left, left - 8, number(y + 4), number(value));
}

/// Keeps the minimum and the maximum of each of `max_places` groups of points.
std::vector<point> thinned(std::span<point const> points) {
    if (points.size() <= 2 * max_places) {
        return {points.begin(), points.end()};
    }
    std::vector<point> few;
    for (std::size_t place = 0; place < max_places; ++place) {
        auto const first = place * points.size() / max_places;
        auto const part = points.subspan(first, (place + 1) * points.size() / max_places - first);
        auto const [lowest, highest] = std::ranges::minmax_element(part, {}, &point::y);
        few.push_back(lowest <= highest ? *lowest : *highest);
        few.push_back(lowest <= highest ? *highest : *lowest);
    }
    return few;
}

}  // namespace

std::string bar_chart(std::span<bar const> bars, axis const& across, std::string const& counted,
                      std::string const& description) {
    double highest = 1;
    for (bar const& one : bars) {
        highest = std::max(highest, one.height);
    }
    auto const y_of = [highest](double count) { return base - std::log1p(count) / std::log1p(highest) * (base - top); };
    std::string text = frame_of(across, counted + ", logarithmic scale", description);
    for (bar const& one : bars) {
        if (one.height <= 0) {
            continue;
        }
        double const from = x_of(one.from, across);
        text += fmt::format(
            "<rect class=\"{}\" x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\"><title>{} {}: {}</title></rect>", one.kind,
            number(from), number(y_of(one.height)), number(std::max(min_bar_width, x_of(one.to, across) - from - 0.5)),
            number(base - y_of(one.height)), number(one.from), across.unit, number(one.height));
    }
    text += tick(base, 0);
    for (double decade = 1; decade < highest / 2; decade *= 10) {
        text += tick(y_of(decade), decade);
    }
    return text + tick(top, highest) + "</svg>";
}

std::string line_chart(std::span<point const> points, axis const& across, std::string const& name,
                       std::string const& unit, std::string const& description) {
    auto const few = thinned(points);
    double lowest = 0;
    double highest = 1;
    if (!few.empty()) {
        lowest = std::ranges::min(few, {}, &point::y).y;
        highest = std::ranges::max(few, {}, &point::y).y;
    }
    bool const varies = highest > lowest;
    // A constant value is drawn in the middle.
    auto const y_of = [=](double value) {
        return varies ? base - 8 - (value - lowest) / (highest - lowest) * (base - 8 - top) : (base + top) / 2;
    };
    std::string text = frame_of(across, name + ", " + unit, description) + "<polyline class=\"line\" points=\"";
    for (point const& one : few) {
        text += number(x_of(one.x, across)) + ',' + number(y_of(one.y)) + ' ';
    }
    text += "\"/>" + tick(y_of(lowest), lowest);
    return text + (varies ? tick(y_of(highest), highest) : std::string()) + "</svg>";
}

}  // namespace mediagrabber
