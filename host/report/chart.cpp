#include "report/chart.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

namespace mediagrabber {

namespace {

// Sizes in the units of the drawing.
constexpr double wide = 900;
constexpr double high = 180;
constexpr double left = 70;
constexpr double bottom = 24;
constexpr double top = 8;
constexpr std::size_t most_places = 800;  ///< along a line

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

double place_of(double value, axis const& across) {
    double const span = across.to > across.from ? across.to - across.from : 1;
    return left + (value - across.from) / span * (wide - left);
}

void begin(std::ostream& out, axis const& across, std::string const& described) {
    double const base = high - bottom;
    out << "<svg viewBox=\"0 0 " << wide << ' ' << high << "\" role=\"img\" aria-label=\"" << described << "\">"
        << "<path class=\"axis\" d=\"M" << left << ' ' << top << 'V' << base << 'H' << wide << "\"/>"
        << "<text x=\"" << left << "\" y=\"" << high - 6 << "\">" << number(across.from) << "</text>"
        << "<text x=\"" << wide << "\" y=\"" << high - 6 << "\" text-anchor=\"end\">" << number(across.to) << ' '
        << across.unit << "</text>";
}

void label_height(std::ostream& out, double y, std::string const& text) {
    out << "<text x=\"" << left - 6 << "\" y=\"" << y << "\" text-anchor=\"end\">" << text << "</text>";
}

/// For each of many places along the axis the least and the greatest value there.
std::vector<point> thinned(std::span<point const> points) {
    if (points.size() <= 2 * most_places) {
        return {points.begin(), points.end()};
    }
    std::vector<point> few;
    for (std::size_t place = 0; place < most_places; ++place) {
        auto const part =
            points.subspan(place * points.size() / most_places,
                           (place + 1) * points.size() / most_places - place * points.size() / most_places);
        auto const [least, greatest] = std::ranges::minmax_element(part, {}, &point::y);
        few.push_back(least <= greatest ? *least : *greatest);
        few.push_back(least <= greatest ? *greatest : *least);
    }
    return few;
}

}  // namespace

std::string bar_chart(std::span<bar const> bars, axis const& across, std::string const& described) {
    std::ostringstream out;
    begin(out, across, described);
    double highest = 1;
    for (bar const& one : bars) {
        highest = std::max(highest, one.height);
    }
    double const base = high - bottom;
    for (bar const& one : bars) {
        if (one.height <= 0) {
            continue;
        }
        double const size = std::log1p(one.height) / std::log1p(highest) * (base - top);
        double const from = place_of(one.from, across);
        out << "<rect class=\"" << one.kind << "\" x=\"" << number(from) << "\" y=\"" << number(base - size)
            << "\" width=\"" << number(std::max(1.5, place_of(one.to, across) - from - 0.5)) << "\" height=\""
            << number(size) << "\"><title>" << number(one.from) << ' ' << across.unit << ": " << number(one.height)
            << "</title></rect>";
    }
    label_height(out, top + 10, number(highest));
    out << "</svg>";
    return out.str();
}

std::string line_chart(std::span<point const> points, axis const& across, std::string const& unit,
                       std::string const& described) {
    std::ostringstream out;
    begin(out, across, described);
    auto const few = thinned(points);
    double least = 0;
    double greatest = 1;
    if (!few.empty()) {
        least = std::ranges::min(few, {}, &point::y).y;
        greatest = std::ranges::max(few, {}, &point::y).y;
    }
    double const span = greatest > least ? greatest - least : 1;
    double const base = high - bottom - 4;
    out << "<polyline class=\"line\" points=\"";
    for (point const& one : few) {
        out << number(place_of(one.x, across)) << ',' << number(base - (one.y - least) / span * (base - top - 6))
            << ' ';
    }
    out << "\"/>";
    label_height(out, base, number(least));
    label_height(out, top + 10, number(greatest) + ' ' + unit);
    out << "</svg>";
    return out.str();
}

}  // namespace mediagrabber
