#pragma once
/// \file
/// Charts as SVG, in the colours of the page that they stand in: classes `axis`, `bar`, `loss`, `gone`, `line`, `mark`.

#include <span>
#include <string>
#include <vector>

namespace mediagrabber {

struct bar {
    double from = 0;
    double to = 0;
    double height = 0;  ///< drawn on a logarithmic scale, so that one in a million is seen
    char const* kind = "bar";
};

struct point {
    double x = 0;
    double y = 0;
};

struct axis {
    double from = 0;
    double to = 1;
    std::string unit;
};

/// \param described for those who cannot see it
std::string bar_chart(std::span<bar const> bars, axis const& across, std::string const& described);

/// Of many points in one place the least and the greatest are drawn.
std::string line_chart(std::span<point const> points, axis const& across, std::string const& unit,
                       std::string const& described);

}  // namespace mediagrabber
