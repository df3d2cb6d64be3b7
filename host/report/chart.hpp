// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Charts as SVG elements. Colours come from the style sheet of the page by class: `axis`, `bar`, `loss`, `gone`,
/// `line`, `mark`.

#include <span>
#include <string>

namespace mediagrabber {

struct bar {
    double from = 0;
    double to = 0;
    double height = 0;  ///< a count; 0 draws nothing
    char const* kind = "bar";
};

struct point {
    double x = 0;
    double y = 0;
};

/// The horizontal axis.
struct axis {
    std::string name;
    std::string unit;
    double from = 0;
    double to = 1;
};

/// Draws counts over `across`. The vertical axis is logarithmic, log(1 + count), so that one in a million is visible;
/// its label states this.
/// \param counted      what is counted, the name of the vertical axis
/// \param description  of the chart, for screen readers
std::string bar_chart(std::span<bar const> bars, axis const& across, std::string const& counted,
                      std::string const& description);

/// Draws a line over `across`, with a linear vertical axis. Of many points at one place only minimum and maximum are
/// drawn.
/// \param name         of the vertical axis
/// \param unit         of the vertical axis
/// \param description  of the chart, for screen readers
std::string line_chart(std::span<point const> points, axis const& across, std::string const& name,
                       std::string const& unit, std::string const& description);

}  // namespace mediagrabber
